/* The least that the commands of a run can cost: floor LIST.
 *
 * LIST has one command per line. "system TEXT" is run by system(3) and waited for; "exec WORD..." is forked, executed
 * and not waited for. Nothing is composed, looked at or written. Leaves with 1 when a command could not be started. */
#define _GNU_SOURCE
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { kMostWords = 32, kCannotRun = 127 };

static int startAlone(char* text) {
  char* words[kMostWords + 1] = {NULL};
  size_t count = 0;
  for (char* word = strtok(text, " "); word && count < kMostWords; word = strtok(NULL, " ")) words[count++] = word;
  const pid_t child = fork();
  if (child == 0) {
    execvp(words[0], words);
    _exit(kCannotRun);
  }
  return child > 0;
}

static int start(char* line) {
  char* const text = strchr(line, ' ');
  if (!text) return 0;
  *text = '\0';
  if (strcmp(line, "exec") == 0) return startAlone(text + 1);
  const int status = system(text + 1);
  return status != -1 && status >> 8 != kCannotRun;
}

int main(int argc, char** argv) {
  FILE* const list = argc == 2 ? fopen(argv[1], "re") : NULL;
  if (!list) return EXIT_FAILURE;
  char* line = NULL;
  size_t size = 0;
  for (ssize_t length; (length = getline(&line, &size, list)) > 0;) {
    line[length - 1] = '\0';
    if (!start(line)) return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}

/* Looks a host name up once, as the system's resolver does it: lookup NAME. What it finds does not matter. */
#include <netdb.h>

int main(int argc, char** argv) {
  if (argc != 2) return 1;
  gethostbyname(argv[1]);
  return 0;
}

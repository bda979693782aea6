// tunnelctl: what is, what would be, and what is wrong. It changes nothing.

#include <array>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "support/text.h"
#include "tunnelctl/check_command.h"
#include "tunnelctl/complaint.h"
#include "tunnelctl/nearest_word.h"
#include "tunnelctl/plan_command.h"
#include "tunnelctl/status.h"
#include "tunnelctl/version.h"

namespace {

constexpr int kCannotTell = 2;

/// A command's words are those behind its name; it returns the exit status: 0 all is well, 1 something is not.
struct Command {
  const char* name;
  const char* synopsis;
  const char* summary;
  int (*perform)(const std::vector<std::string>& words);
};

constexpr std::array<Command, 3> kCommands{
    {{"check", "check [FILE]", "what is wrong with a configuration", performCheck},
     {"plan", "plan [--from FILE] [--offline]", "what the next run would do now", performPlan},
     {"status", "status [--wait SECONDS | --watch] [--format prometheus]", "what is up, and why the rest is not",
      performStatus}}};

int printUsage() {
  puts("Usage: tunnelctl COMMAND [OPTION...]\n");
  for (const Command& command : kCommands) printf("  %-44s %s\n", command.synopsis, command.summary);
  puts("  --version, --help\n\nExit status: 0 all is well, 1 something is not, 2 it cannot tell. See tunnelctl(8).");
  return 0;
}

int perform(const std::vector<std::string>& words) {
  if (words.empty()) throw Complaint("no command; tunnelctl --help lists them");
  if (words[0] == "--help") return printUsage();
  if (words[0] == "--version") return printf("tunnelctl %s\n", kVersion) < 0 ? kCannotTell : 0;
  std::vector<std::string_view> known;
  for (const Command& command : kCommands) {
    if (words[0] == command.name) return command.perform({words.begin() + 1, words.end()});
    known.emplace_back(command.name);
  }
  const std::string_view near = nearestWord(words[0], known);
  const std::string question = near.empty() ? "" : ZEL::Text::joined({", did you mean ", near, "?"});
  throw Complaint(ZEL::Text::joined({"unknown command ", words[0], question}));
}

/// Without this an answer that a full disk has cut would be one of a router on which all is well.
void deliverOutput() {
  if (fflush(stdout) != 0 || ferror(stdout) != 0) throw Complaint("cannot write to standard output");
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const int status = perform({argv + 1, argv + argc});
    deliverOutput();
    return status;
  } catch (const std::exception& complaint) {
    fprintf(stderr, "tunnelctl: %s\n", complaint.what());
    return kCannotTell;
  }
}

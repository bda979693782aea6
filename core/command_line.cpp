#include "core/command_line.h"

#include <getopt.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "support/logger.h"
#include "support/text.h"

bool daemonize = false;

namespace {

constexpr int kHighestPrintLevel = 100;

constexpr std::array<option, 4> kLongOptions{{{"help", no_argument, nullptr, 'h'},
                                              {"daemonize", no_argument, nullptr, 'd'},
                                              {"printlvl", required_argument, nullptr, 'p'},
                                              {nullptr, 0, nullptr, 0}}};

[[noreturn]] void printUsage(const char* program) {
  printf("Usage: %s --h\n", program);
  puts("\tEstablishes GRE Tunnels based on current configurations");
  puts("\t--printlvl (p)  : sets the printlvl [0-100]");
  puts("\t--daemonize (d) : initializes then waits on SIGUP signal");
  puts("\t--help (h)      : returns this message");
  exit(0);
}

void setPrintLevel(const char* text) {
  int level = 0;
  if (!ZEL::Text::parse(level, text) || level < 0 || level > kHighestPrintLevel) {
    printf("print level out of range [0-100]");
    exit(1);
  }
  ZEL::Logger::setPrintLevel(level, false);
}

void reportOtherArguments(int argc, char** argv) {
  if (optind >= argc) return;
  fputs("non-option ARGV-elements: \n", stderr);
  for (int i = optind; i < argc; ++i) fprintf(stderr, "%s ", argv[i]);
  fputs("\n", stderr);
}

}  // namespace

void applyOption(int letter, const char* argument, const char* program) {
  switch (letter) {
    case 'd':
      daemonize = true;
      break;
    case 'h':
      printUsage(program);
    case 'p':
      setPrintLevel(argument);
      break;
    case '?':  // an unknown option, which getopt_long has reported
      break;
    default:
      puts("ABORTING!!");
      abort();
  }
}

void parseOptions(int argc, char** argv) {
  for (int letter = 0; (letter = getopt_long(argc, argv, "hdp:", kLongOptions.data(), nullptr)) != -1;) {
    applyOption(letter, optarg, argv[0]);
  }
  reportOtherArguments(argc, argv);
}

#include "core/command_line.h"

#include <getopt.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "support/logger.h"
#include "tests/unit/harness/child_process.h"

namespace {

constexpr char kUsage[] =
    "Usage: /usr/sbin/program --h\n"
    "\tEstablishes GRE Tunnels based on current configurations\n"
    "\t--printlvl (p)  : sets the printlvl [0-100]\n"
    "\t--daemonize (d) : initializes then waits on SIGUP signal\n"
    "\t--help (h)      : returns this message\n";

constexpr char kOutOfRange[] = "print level out of range [0-100]";

/// The highest level that is printed, or -1: with it, a child process shows the print level that it was given.
int highestPrintable() {
  int level = -1;
  while (level < 200 && ZEL::Logger::isPrintable(level + 1)) ++level;
  return level;
}

/// Parses a command line, in a process of its own since it may end there; what it set is then printed.
ChildEnd parse(std::vector<std::string> arguments) {
  return runInChild([&arguments] {
    arguments.insert(arguments.begin(), "/usr/sbin/program");
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    optind = 1;
    parseOptions(static_cast<int>(arguments.size()), argv.data());
    printf("daemonize %d, print level %d\n", daemonize ? 1 : 0, highestPrintable());
  });
}

std::string state(bool asDaemon, int printLevel) {
  return "daemonize " + std::to_string(asDaemon ? 1 : 0) + ", print level " + std::to_string(printLevel) + "\n";
}

TEST(ParseOptions, setsWhatTheOptionsSay) {
  const struct {
    std::vector<std::string> arguments;
    std::string out;
  } rows[] = {
      {{}, state(false, 0)},
      {{"-d"}, state(true, 0)},
      {{"--daemonize"}, state(true, 0)},
      {{"--daemon"}, state(true, 0)},
      {{"-d", "-d"}, state(true, 0)},
      {{"-p", "100", "-p", "0"}, state(false, 0)},
      {{"-p", "100"}, state(false, 100)},
      {{"-p50"}, state(false, 50)},
      {{"--printlvl", "75"}, state(false, 75)},
      {{"--printlvl=25"}, state(false, 25)},
      {{"--printlvl", "100", "--printlvl", "0"}, state(false, 0)},
      {{"--printlvl", "100"}, state(false, 100)},
      {{"-p", "100", "-p", "25"}, state(false, 25)},
      {{"-p", "25", "--printlvl", "100"}, state(false, 100)},
      {{"-dp", "100"}, state(true, 100)},
      {{"--printlvl", "100", "--daemonize"}, state(true, 100)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    const ChildEnd end = parse(row.arguments);
    EXPECT_TRUE(end.exitedWith(0)) << end;
    EXPECT_EQ(end.out, row.out);
    EXPECT_EQ(end.err, "");
  }
}

TEST(ParseOptions, printsTheUsageAndEnds) {
  const std::vector<std::string> rows[] = {{"-h"}, {"--help"}, {"-d", "-h"}, {"-h", "-p", "101"}, {"other", "-h"}};
  for (const auto& arguments : rows) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    const ChildEnd end = parse(arguments);
    EXPECT_TRUE(end.exitedWith(0)) << end;
    EXPECT_EQ(end.out, kUsage);
    EXPECT_EQ(end.err, "");
  }
}

TEST(ParseOptions, refusesPrintLevelsThatAreNone) {
  const std::vector<std::string> rows[] = {{"-p", "101"},
                                           {"-p", "-5"},
                                           {"-p", "-1"},
                                           {"-p", ""},
                                           {"-p", "abc"},
                                           {"-p", "5x"},
                                           {"-p", " 5"},
                                           {"-p", "5 "},
                                           {"-p", "1e1"},
                                           {"-p", "4294967296"},
                                           {"-p", "4294967301"},
                                           {"-p", "2147483648"},
                                           {"-p", "-2147483648"},
                                           {"--printlvl", "101"},
                                           {"--printlvl", "-5"},
                                           {"--printlvl="},
                                           {"-p", "50", "-p", "101"},
                                           {"-p", "101", "-p", "50"},
                                           {"-p", "101", "-h"}};
  for (const auto& arguments : rows) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    const ChildEnd end = parse(arguments);
    EXPECT_TRUE(end.exitedWith(1)) << end;
    EXPECT_EQ(end.out, kOutOfRange);
    EXPECT_EQ(end.err, "");
  }
}

TEST(ParseOptions, goesOnAfterAnUnknownOption) {
  const struct {
    std::vector<std::string> arguments;
    const char* err;
  } rows[] = {
      {{"-x", "-d"}, "/usr/sbin/program: invalid option -- 'x'\n"},
      {{"--unknown", "-d"}, "/usr/sbin/program: unrecognized option '--unknown'\n"},
      {{"-d", "-p"}, "/usr/sbin/program: option requires an argument -- 'p'\n"},
      {{"-d", "--printlvl"}, "/usr/sbin/program: option '--printlvl' requires an argument\n"},
      {{"-d", "--help=now"}, "/usr/sbin/program: option '--help' doesn't allow an argument\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    const ChildEnd end = parse(row.arguments);
    EXPECT_TRUE(end.exitedWith(0)) << end;
    EXPECT_EQ(end.out, state(true, 0));
    EXPECT_EQ(end.err, row.err);
  }
}

TEST(ParseOptions, reportsArgumentsThatAreNoOptions) {
  const struct {
    std::vector<std::string> arguments;
    const char* err;
  } rows[] = {
      {{"-d", "one"}, "non-option ARGV-elements: \none \n"},
      {{"one", "-d", "two words", ""}, "non-option ARGV-elements: \none two words  \n"},
      {{"-d", "--", "-p", "101"}, "non-option ARGV-elements: \n-p 101 \n"},
      {{"-d", "-"}, "non-option ARGV-elements: \n- \n"},
      {{"-d", "--"}, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    const ChildEnd end = parse(row.arguments);
    EXPECT_TRUE(end.exitedWith(0)) << end;
    EXPECT_EQ(end.out, state(true, 0));
    EXPECT_EQ(end.err, row.err);
  }
}

TEST(ApplyOption, abortsForALetterThatIsNone) {
  for (const char letter : {'x', '\0', '\1', ':'}) {
    const ChildEnd end = runInChild([letter] {
      setvbuf(stdout, nullptr, _IONBF, 0);  // abort(3) writes out nothing that stdio has kept back
      applyOption(letter, nullptr, "program");
    });
    EXPECT_TRUE(end.killedBy(SIGABRT)) << end;
    EXPECT_EQ(end.out, "ABORTING!!\n");
  }
}

TEST(ApplyOption, ignoresWhatIsReportedAlready) {
  const ChildEnd end = runInChild([] {
    applyOption('?', nullptr, "program");
    EXPECT_FALSE(daemonize);
    EXPECT_EQ(highestPrintable(), 0);
  });
  EXPECT_TRUE(end.exitedWith(0)) << end;
  EXPECT_EQ(end.out + end.err, "");
}

}  // namespace

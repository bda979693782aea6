// The simulator's command line (docs/simulation.md).

#include <getopt.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <sstream>

#include "simulation/history.h"
#include "simulation/image.h"
#include "simulation/isolation.h"
#include "simulation/shortening.h"

using namespace simulation;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kBatch = 500;

struct Options {
  std::optional<std::uint64_t> seed;
  std::optional<std::uint64_t> schedule;
  std::optional<unsigned int> tunnels;
  std::optional<Time> until;
  std::optional<std::string> only;
  std::uint64_t from = 1;
  std::uint64_t histories = UINT64_MAX;
  double minutes = 0;
  unsigned int days = 0;
  bool shortens = true;
};

[[noreturn]] void printUsage(int status) {
  fputs(
      "usage: simulate --seed N [--schedule N] [--tunnels N] [--until MILLISECONDS] [--only EVENT,...|none]\n"
      "       simulate --histories N|--minutes N [--from SEED] [--whole]\n"
      "       simulate --days N [--seed N]\n",
      status == 0 ? stdout : stderr);
  exit(status);
}

Options optionsFrom(int argc, char** argv) {
  const std::array<option, 11> known{{{"seed", 1, nullptr, 's'},
                                      {"schedule", 1, nullptr, 'c'},
                                      {"tunnels", 1, nullptr, 't'},
                                      {"until", 1, nullptr, 'u'},
                                      {"only", 1, nullptr, 'o'},
                                      {"from", 1, nullptr, 'f'},
                                      {"histories", 1, nullptr, 'n'},
                                      {"minutes", 1, nullptr, 'm'},
                                      {"days", 1, nullptr, 'd'},
                                      {"whole", 0, nullptr, 'w'},
                                      {nullptr, 0, nullptr, 0}}};
  Options options;
  for (int letter = 0; (letter = getopt_long(argc, argv, "", known.data(), nullptr)) != -1;) {
    const auto number = [] { return strtoull(optarg, nullptr, 10); };
    if (letter == 's') options.seed = number();
    if (letter == 'c') options.schedule = number();
    if (letter == 't') options.tunnels = static_cast<unsigned int>(number());
    if (letter == 'u') options.until = static_cast<Time>(number()) * kMillisecond;
    if (letter == 'o') options.only = optarg;
    if (letter == 'f') options.from = number();
    if (letter == 'n') options.histories = number();
    if (letter == 'm') options.minutes = strtod(optarg, nullptr);
    if (letter == 'd') options.days = static_cast<unsigned int>(number());
    if (letter == 'w') options.shortens = false;
    if (letter == '?') printUsage(2);
  }
  if (optind < argc || argc == 1) printUsage(2);
  return options;
}

std::vector<std::size_t> numbersOf(const std::string& list) {
  std::vector<std::size_t> numbers;
  std::istringstream stream(list);
  for (std::string word; std::getline(stream, word, ',');) {
    if (word != "none") numbers.push_back(strtoull(word.c_str(), nullptr, 10));
  }
  return numbers;
}

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

void printPlan(const Plan& plan, const std::vector<std::size_t>& numbers) {
  printf("Seed %lu, schedule %lu, up to %u tunnels of each kind, print level %d; healed at %.3f s. Events:\n",
         plan.seed, plan.schedule, plan.tunnels, plan.printLevel, static_cast<double>(plan.horizon) / kSecond);
  for (std::size_t i = 0; i < plan.events.size(); ++i)
    printf("%4zu %12.6f  %s\n", numbers[i], static_cast<double>(plan.events[i].at) / kSecond,
           told(plan.events[i]).c_str());
}

int performOne(const Options& options) {
  Plan plan = drawnPlan(*options.seed);
  std::vector<std::size_t> numbers(plan.events.size());
  for (std::size_t i = 0; i < numbers.size(); ++i) numbers[i] = i;
  if (options.only) numbers = numbersOf(*options.only);
  plan = withEvents(plan, numbers);
  plan.schedule = options.schedule.value_or(plan.schedule);
  plan.tunnels = options.tunnels.value_or(plan.tunnels);
  plan.horizon = options.until.value_or(plan.horizon);
  printPlan(plan, numbers);
  const Outcome outcome = performHistory(plan, Telling::kAtOnce);
  printf("Digest %016lx after %lu places, %lu switches, %lu runs, %zu processes.\n%s\n", outcome.digest, outcome.places,
         outcome.switches, outcome.runs, outcome.processes,
         outcome.violation.empty() ? "Everything held." : outcome.violation.c_str());
  return outcome.violation.empty() ? 0 : 1;
}

void printTally(const Tally& tally, double seconds) {
  printf("%lu histories in %.1f s (%.0f each second): %.1f hours of virtual time, %.0f times as fast as real time.\n",
         tally.histories, seconds, static_cast<double>(tally.histories) / seconds,
         static_cast<double>(tally.seconds) / 3600, static_cast<double>(tally.seconds) / seconds);
  printf("%lu processes, %lu requests, %lu runs, %lu explained overlaps; %lu places, %lu switches. Digest %016lx.\n",
         tally.processes, tally.requests, tally.runs, tally.overlaps, tally.places, tally.switches, tally.digest);
}

/// Shows a failure as short as it can be made.
void explain(const Failure& failure, bool shortens) {
  printf("Seed %lu fails: %s\n", failure.seed, failure.violation.c_str());
  const Plan plan = drawnPlan(failure.seed);
  if (!shortens) return;
  printf("Making it shorter ...\n");
  fflush(stdout);
  const Shortened found = shortened(plan, failure.violation);
  printf("%zu of its %zu events are left. Again: scripts/simulate %s\n", found.events.size(), plan.events.size(),
         optionsOf(found).c_str());
  printPlan(found.plan, found.events);
  tellHistory(found.plan);
}

int performMany(const Options& options) {
  const Clock::time_point begin = Clock::now();
  const auto isTime = [&] { return options.minutes > 0 && secondsSince(begin) >= options.minutes * 60; };
  Tally tally;
  std::optional<Failure> failure;
  while (!failure && tally.histories < options.histories && !isTime())
    failure = performBatch(options.from + tally.histories, std::min(kBatch, options.histories - tally.histories),
                           isTime, tally);
  printTally(tally, secondsSince(begin));
  if (failure) explain(*failure, options.shortens);
  return failure ? 1 : 0;
}

int performDays(const Options& options) {
  const Clock::time_point begin = Clock::now();
  const Plan plan = longPlan(options.seed.value_or(1), options.days);
  const Outcome outcome = performHistory(plan, Telling::kDigest);
  const double seconds = secondsSince(begin);
  printf(
      "%u days with %zu events in %.1f s, %.0f times as fast as real time: %lu runs, %lu requests, %zu processes, %lu "
      "places, %lu switches. Digest %016lx.\n",
      options.days, plan.events.size(), seconds, static_cast<double>(outcome.time) / kSecond / seconds, outcome.runs,
      outcome.requests, outcome.processes, outcome.places, outcome.switches, outcome.digest);
  puts(outcome.violation.empty() ? "Everything held." : outcome.violation.c_str());
  return outcome.violation.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const Image untouched;  // from here on it is known how the program's globals are at first
  setenv("TZ", "UTC", 1);
  const Options options = optionsFrom(argc, argv);
  if (options.days > 0) return performDays(options);
  return options.seed ? performOne(options) : performMany(options);
}

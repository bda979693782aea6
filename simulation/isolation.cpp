#include "simulation/isolation.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "simulation/history.h"

namespace simulation {
namespace {

/// What the child tells, in memory that both have.
struct Told {
  Tally tally;
  std::uint64_t seed = 0;
  bool failed = false;
  std::array<char, 4096> violation{};
};

class SharedTold {
 public:
  SharedTold()
      : told_(new (mmap(nullptr, sizeof(Told), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Told) {}
  ~SharedTold() { munmap(told_, sizeof(Told)); }
  SharedTold(const SharedTold&) = delete;
  SharedTold& operator=(const SharedTold&) = delete;

  Told& operator*() const { return *told_; }
  Told* operator->() const { return told_; }

 private:
  Told* told_;
};

void keep(const Outcome& outcome, Told& told) {
  Tally& tally = told.tally;
  ++tally.histories;
  tally.seconds += static_cast<std::uint64_t>(outcome.time / kSecond);
  tally.places += outcome.places;
  tally.switches += outcome.switches;
  tally.runs += outcome.runs;
  tally.requests += outcome.requests;
  tally.overlaps += outcome.overlaps;
  tally.processes += outcome.processes;
  tally.digest = tally.digest * 0x9e3779b97f4a7c15U + outcome.digest;
  told.failed = !outcome.violation.empty();
  snprintf(told.violation.data(), told.violation.size(), "%s", outcome.violation.c_str());
}

/// Has a child do something and says how it ended, "" when it ended well.
std::string inChild(const std::function<void()>& life) {
  fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) {
    perror("fork");
    exit(2);
  }
  if (child == 0) {
    life();
    fflush(nullptr);
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status)) return std::string("the process is ended by a signal: ") + strsignal(WTERMSIG(status));
  return WEXITSTATUS(status) == 0 ? "" : "the process ends with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

std::optional<Failure> performBatch(std::uint64_t first, std::uint64_t number, const std::function<bool()>& isTime,
                                    Tally& tally) {
  const SharedTold told;
  told->tally = tally;
  const std::string end = inChild([&] {
    for (std::uint64_t i = 0; i < number && !told->failed && !isTime(); ++i) {
      told->seed = first + i;
      keep(performHistory(drawnPlan(told->seed), Telling::kDigest), *told);
    }
  });
  tally = told->tally;
  if (told->failed) return Failure{told->seed, told->violation.data()};
  if (!end.empty()) return Failure{told->seed, end};
  return std::nullopt;
}

void tellHistory(const Plan& plan) {
  const std::string end = inChild([&plan] { performHistory(plan, Telling::kAtOnce); });
  if (!end.empty()) puts(end.c_str());
}

std::string violationOf(const Plan& plan) {
  const SharedTold told;
  const std::string end = inChild([&] { keep(performHistory(plan, Telling::kDigest), *told); });
  return told->failed ? told->violation.data() : end;
}

}  // namespace simulation

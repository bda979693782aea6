#include "simulation/init.h"

#include "simulation/world.h"

namespace simulation {
namespace {

constexpr std::size_t kStackBytes = 256 * std::size_t{1024};
constexpr Time kLookAgain = 500 * kMillisecond;

void keepRunning(int printLevel, const bool& goesOn) {
  while (goesOn) {
    if (world->living == 0) startDaemon(printLevel);
    sleepUntil(timeNow() + kLookAgain);
  }
}

}  // namespace

void sleepUntil(Time time) {
  while (timeNow() < time) scheduler->wait(nullptr, time, "time");
}

Process& startDaemon(int printLevel) {
  return startProgram({"tunnel_mngr", "--daemonize", "--printlvl", std::to_string(printLevel)});
}

Init::Init(int printLevel) {
  scheduler->spawn(nullptr, "init", kStackBytes, [printLevel, goesOn = goesOn_] { keepRunning(printLevel, *goesOn); });
}

}  // namespace simulation

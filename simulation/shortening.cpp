#include "simulation/shortening.h"

#include <algorithm>
#include <numeric>

#include "simulation/isolation.h"

namespace simulation {
namespace {

/// How often a history without some events is tried with another order of the threads before these are needed.
constexpr std::uint64_t kSchedules = 8;
constexpr int kMostTries = 1500;

/// What is violated, without times and numbers.
std::string kindOf(const std::string& violation) {
  std::string kind;
  for (const char c : violation.substr(0, violation.find(':'))) {
    if (c < '0' || c > '9') kind += c;
  }
  return kind;
}

class Search {
 public:
  Search(const Plan& plan, const std::string& violation)
      : whole_(plan), kind_(kindOf(violation)), best_{plan, std::vector<std::size_t>(plan.events.size()), violation} {
    std::iota(best_.events.begin(), best_.events.end(), 0);
  }

  Shortened found() {
    takeAwayEvents();
    takeAwayTunnels();
    takeAwayTime();
    return best_;
  }

 private:
  bool tryOnce(const Plan& plan, const std::vector<std::size_t>& events) {
    if (--left_ < 0) return false;
    const std::string violation = violationOf(plan);
    if (violation.empty() || kindOf(violation) != kind_) return false;
    best_ = {plan, events, violation};
    return true;
  }

  bool tryWith(Plan plan, const std::vector<std::size_t>& events) {
    for (std::uint64_t i = 0; i < kSchedules; ++i) {
      if (tryOnce(plan, events)) return true;
      plan.schedule = whole_.schedule + i + 1;
    }
    return false;
  }

  Plan planWith(const std::vector<std::size_t>& events) const {
    Plan plan = best_.plan;
    plan.events = withEvents(whole_, events).events;
    return plan;
  }

  /// Halves first, single ones at last.
  void takeAwayEvents() {
    for (std::size_t size = std::max<std::size_t>(best_.events.size() / 2, 1); size > 0; size /= 2) {
      for (std::size_t from = 0; from < best_.events.size();) {
        std::vector<std::size_t> rest = best_.events;
        const auto begin = rest.begin() + static_cast<std::ptrdiff_t>(from);
        rest.erase(begin, begin + static_cast<std::ptrdiff_t>(std::min(size, rest.size() - from)));
        if (!tryWith(planWith(rest), rest)) from += size;
      }
    }
  }

  void takeAwayTunnels() {
    while (best_.plan.tunnels > 0) {
      Plan plan = best_.plan;
      --plan.tunnels;
      if (!tryWith(plan, best_.events)) return;
    }
  }

  void takeAwayTime() {
    Plan plan = best_.plan;
    plan.horizon = (plan.events.empty() ? 0 : plan.events.back().at) + kSecond;
    if (plan.horizon < best_.plan.horizon) tryWith(plan, best_.events);
  }

  const Plan whole_;
  const std::string kind_;
  Shortened best_;
  int left_ = kMostTries;
};

}  // namespace

Plan withEvents(const Plan& plan, const std::vector<std::size_t>& events) {
  Plan rest = plan;
  rest.events.clear();
  for (const std::size_t event : events) {
    if (event < plan.events.size()) rest.events.push_back(plan.events[event]);
  }
  return rest;
}

Shortened shortened(const Plan& plan, const std::string& violation) {
  return Search(plan, violation).found();
}

std::string optionsOf(const Shortened& shortened) {
  std::string only;
  for (const std::size_t event : shortened.events) only += (only.empty() ? "" : ",") + std::to_string(event);
  return "--seed " + std::to_string(shortened.plan.seed) + " --schedule " + std::to_string(shortened.plan.schedule) +
         " --tunnels " + std::to_string(shortened.plan.tunnels) + " --until " +
         std::to_string(shortened.plan.horizon / kMillisecond) + " --only " + (only.empty() ? "none" : only);
}

}  // namespace simulation

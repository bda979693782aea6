#include <algorithm>

#include "tunnelctl/check_addresses.h"
#include "tunnelctl/check_rules.h"

void checkWans(const Place& root, Findings& findings) {
  const std::vector<Place> wans = root["wans"].elements();
  const auto current = std::find_if(wans.begin(), wans.end(), [](const Place& wan) { return wan["current"].flag(); });
  if (current == wans.end()) {
    findings.add(root["wans"], Problem::kNoWan);
    return;
  }
  const Place place = (*current)["ip"];
  if (!parseAddress(place.textOrNothing())) findings.add(place, Problem::kWanAddress, {place.textOrNothing()});
}

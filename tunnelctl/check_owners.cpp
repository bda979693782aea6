#include "tunnelctl/check_owners.h"

void Owners::add(std::string_view name, const Place& owner, const Place& place, Findings& findings) {
  if (!owner.isInForce()) return;
  const auto [found, isNew] = owners_.emplace(name, owner.pointer());
  if (!isNew) findings.add(place, problem_, {name, found->second});
}

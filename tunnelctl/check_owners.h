// Names that only one can have.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "tunnelctl/check_findings.h"

class Owners {
 public:
  /// `problem`: what it is to have the name of another. Its sentence takes the name and the other's pointer.
  explicit Owners(Problem problem) : problem_(problem) {}

  /// Gives a name to an owner, unless that is not in force, or tells at the place that another one has it.
  void add(std::string_view name, const Place& owner, const Place& place, Findings& findings);

 private:
  Problem problem_;
  std::map<std::string, std::string> owners_;
};

// Stand-ins for the programs that the tunnel manager runs.
#pragma once

#include <string>
#include <vector>

/// While it lives, a program of that name is found first on PATH. It notes each call, prints what it is told to and
/// exits with the given status. Not for tests with several threads, since it changes the environment.
class StandIn {
 public:
  StandIn(const std::string& program, const std::string& output, int status);
  ~StandIn();
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;

  /// The calls so far, each as the program's name and its arguments between "|"s, so that blanks show.
  std::vector<std::string> calls() const;

 private:
  std::string folder_;
  std::string pathBefore_;
};

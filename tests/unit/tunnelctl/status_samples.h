// Facts of a router on which all is well, for tests that then break something.
#pragma once

#include <string>
#include <vector>

#include "tunnelctl/status_facts.h"
#include "tunnelctl/status_rows.h"

namespace status_test {

constexpr std::int64_t kNow = 1000000;
constexpr int kDaemon = 100;

inline Process process(int pid, const std::string& name, std::vector<std::string> arguments, int parent = 1) {
  Process process;
  process.pid = pid;
  process.parent = parent;
  process.name = name;
  process.arguments = std::move(arguments);
  process.startedAt = kNow - 60;
  return process;
}

/// A WAN, a way out, and a daemon that others can find.
inline Facts facts() {
  Facts facts;
  facts.now = kNow;
  facts.configuration.wan = "198.51.100.2";
  facts.marks = {true, std::to_string(kDaemon) + "\n"};
  facts.processes.push_back(process(kDaemon, "tunnel_mngr", {"tunnel_mngr", "-d"}));
  Device wan;
  wan.name = "wan";
  wan.isUp = true;
  wan.addresses = {*parseNetwork("198.51.100.2/24")};
  facts.devices.push_back(wan);
  facts.routes.push_back({*parseNetwork("default"), "wan"});
  return facts;
}

/// A verdict on one line: "down: its link is down", or "up".
inline std::string shown(const Verdict& verdict) {
  return textOf(verdict.state) + (verdict.reason.empty() ? "" : ": " + verdict.reason);
}

/// The same of rows, behind the name.
inline std::vector<std::string> shown(const std::vector<TunnelRow>& rows) {
  std::vector<std::string> texts;
  for (const TunnelRow& row : rows) texts.push_back(row.name + " " + shown(row.verdict));
  return texts;
}

}  // namespace status_test

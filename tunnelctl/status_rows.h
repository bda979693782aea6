// What becomes of the facts: a row for each tunnel, and what there is to say of the rest. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tunnelctl/status_facts.h"

enum class TunnelState {
  kUp,
  kPartial,  ///< something of it is up
  kDown,
  kStale,    ///< there, but not configured
  kUnknown,  ///< nothing tells
};

const char* textOf(TunnelState state);

/// A state and, unless it is up, why, in words that lead to the mend: half a sentence without a full stop.
struct Verdict {
  TunnelState state = TunnelState::kUp;
  std::string reason{};
};

Verdict down(std::string_view reason);
Verdict unknown(std::string_view reason);

struct TunnelRow {
  const char* kind = "";  ///< "gre", "ipsec", "openvpn"
  std::string name{};
  Verdict verdict{};
  std::string local{};  ///< "" where it is not known, and so is the other end
  std::string remote{};
  std::optional<Traffic> traffic{};
  std::optional<std::int64_t> lastContact{};  ///< seconds since the epoch: keys were agreed upon, or a ping answered
};

/// The rows of each kind: first what is configured, in that order, then what was found besides.
std::vector<TunnelRow> greRows(const Facts& facts);
std::vector<TunnelRow> ipsecRows(const Facts& facts);
std::vector<TunnelRow> openvpnRows(const Facts& facts);

struct DaemonStatus {
  bool isRunning = false;
  int pid = 0;  ///< of the daemon, or of a single run that goes on
  bool isSingleRun = false;
  std::int64_t startedAt = 0;  ///< seconds since the epoch
  int printLevel = 0;
  std::vector<std::string> remarks{};  ///< what is not in order, and what the next start will do
};

DaemonStatus daemonStatus(const Facts& facts);

struct IpsecService {
  bool isRunning = false;
  std::string complaint{};  ///< why it is not known whether it runs, or ""
  std::size_t written = 0;
  std::size_t loaded = 0;  ///< of those that are written
};

IpsecService ipsecService(const Facts& facts);

struct Status {
  std::int64_t time = 0;  ///< seconds since the epoch
  DaemonStatus daemon{};
  std::string apiComplaint{};        ///< "" when it answers
  std::optional<std::string> wan{};  ///< the current one, "" for none; nothing when the API does not tell
  std::vector<std::string> wansInUse{};
  IpsecService ipsec{};
  std::string kernelComplaint{};  ///< "" when the devices could be listed
  std::vector<TunnelRow> tunnels{};
};

Status judge(const Facts& facts);

/// 0: all that is configured is up. 1: something is not. 2: nothing is known to be down, but not everything is known.
int exitStatusOf(const Status& status);

/// A time that has passed, in the largest unit of which there are two or more: "4 s", "20 min", "5 h", "3 days".
std::string ageText(std::int64_t seconds);

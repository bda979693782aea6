#include <array>
#include <limits>
#include <set>

#include "support/text.h"
#include "tunnelctl/console.h"
#include "tunnelctl/status_output.h"

namespace {

using ZEL::Text;

using Value = std::optional<std::uint64_t>;

/// A metric of the tunnels: for each of them a sample where there is a value.
struct TunnelMetric {
  const char* name;
  const char* type;
  const char* help;
  bool hasState;  ///< as a label
  Value (*value)(const TunnelRow& row);
};

/// What is not configured is neither up nor down.
Value upValue(const TunnelRow& row) {
  const TunnelState state = row.verdict.state;
  if (state == TunnelState::kStale || state == TunnelState::kUnknown) return std::nullopt;
  return state == TunnelState::kUp ? 1 : 0;
}

Value one(const TunnelRow&) {
  return 1;
}

Value received(const TunnelRow& row) {
  return row.traffic ? Value(row.traffic->received) : std::nullopt;
}

Value sent(const TunnelRow& row) {
  return row.traffic ? Value(row.traffic->sent) : std::nullopt;
}

Value lastContact(const TunnelRow& row) {
  return row.lastContact ? Value(static_cast<std::uint64_t>(*row.lastContact)) : std::nullopt;
}

constexpr std::array<TunnelMetric, 5> kTunnelMetrics{
    {{"tunnel_up", "gauge", "Whether the tunnel is up; 0 for one that is up in part.", false, upValue},
     {"tunnel_state", "gauge", "1 for the state that the tunnel is in.", true, one},
     {"tunnel_received_bytes_total", "counter", "Bytes that have come through the tunnel.", false, received},
     {"tunnel_sent_bytes_total", "counter", "Bytes that have gone through the tunnel.", false, sent},
     {"tunnel_last_contact_timestamp_seconds", "gauge",
      "When keys were agreed upon or a ping was answered last, since the epoch.", false, lastContact}}};

std::string fullName(const char* name) {
  return std::string("tunnel_mngr_") + name;
}

std::string head(const std::string& name, const char* type, const char* help) {
  return Text::joined({"# HELP ", name, " ", help, "\n# TYPE ", name, " ", type, "\n"});
}

std::string sample(const std::string& nameAndLabels, std::uint64_t value) {
  return Text::joined({nameAndLabels, " ", std::to_string(value), "\n"});
}

std::string gauge(const char* name, const char* help, std::uint64_t value) {
  return head(fullName(name), "gauge", help) + sample(fullName(name), value);
}

/// As a label's value: UTF-8, with what has a meaning there escaped.
std::string escaped(const std::string& text) {
  const std::string shown = fitted(text, std::numeric_limits<std::size_t>::max());
  return Text::replace(Text::replace(shown, "\\", "\\\\"), "\"", "\\\"");
}

std::string labels(const TunnelRow& row, bool hasState) {
  const std::string state = hasState ? std::string("\",state=\"") + textOf(row.verdict.state) : "";
  return Text::joined({"{kind=\"", row.kind, "\",name=\"", escaped(row.name), state, "\"}"});
}

/// Nothing when no tunnel has a value. Labels that were there already would make the whole text unreadable, so a second
/// sample with the same is left out.
std::string samplesOf(const TunnelMetric& metric, const std::vector<TunnelRow>& tunnels) {
  std::string samples;
  std::set<std::string> seen;
  for (const TunnelRow& row : tunnels) {
    const Value value = metric.value(row);
    const std::string name = fullName(metric.name) + labels(row, metric.hasState);
    if (value && seen.insert(name).second) samples += sample(name, *value);
  }
  return samples.empty() ? "" : head(fullName(metric.name), metric.type, metric.help) + samples;
}

std::string routerMetrics(const Status& status) {
  std::string text = gauge("daemon_up", "Whether the daemon runs.", status.daemon.isRunning ? 1 : 0);
  if (status.daemon.isRunning)
    text += gauge("daemon_start_time_seconds", "When the daemon was started, since the epoch.",
                  static_cast<std::uint64_t>(status.daemon.startedAt));
  text += gauge("api_up", "Whether the configuration API answers.", status.apiComplaint.empty() ? 1 : 0);
  if (status.wan) text += gauge("wan_up", "Whether a WAN is current.", status.wan->empty() ? 0 : 1);
  if (status.ipsec.complaint.empty())
    text += gauge("ipsec_service_up", "Whether the IPsec service runs.", status.ipsec.isRunning ? 1 : 0);
  return text;
}

}  // namespace

std::string statusMetrics(const Status& status) {
  std::string text = routerMetrics(status);
  for (const TunnelMetric& metric : kTunnelMetrics) text += samplesOf(metric, status.tunnels);
  return text + gauge("status_timestamp_seconds", "When all this was looked at, since the epoch.",
                      static_cast<std::uint64_t>(status.time));
}

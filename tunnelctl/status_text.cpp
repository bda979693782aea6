#include <array>
#include <ctime>

#include "support/text.h"
#include "tunnelctl/console.h"
#include "tunnelctl/status_output.h"

namespace {

using ZEL::Text;

constexpr std::size_t kLabelColumns = 8;
constexpr std::size_t kKindColumns = 8;
constexpr std::size_t kNameColumns = 24;
constexpr std::size_t kStateColumns = 8;
constexpr std::size_t kEndColumns = 18;
constexpr std::size_t kBytesColumns = 11;

std::string localTime(std::int64_t time) {
  const time_t seconds = time;
  tm parts{};
  localtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
  return text.data();
}

/// "Daemon  text"
std::string line(const char* label, std::string_view text) {
  return paragraph(Text::joined({column(label, kLabelColumns), text}), kLabelColumns);
}

std::string listed(const std::vector<std::string>& texts) {
  std::string text;
  for (const std::string& each : texts) {
    if (!text.empty()) text += ", ";
    text += each;
  }
  return text;
}

std::string daemonText(const DaemonStatus& daemon, std::int64_t now) {
  if (daemon.isSingleRun) return "does not run; a single run goes on, PID " + std::to_string(daemon.pid);
  if (!daemon.isRunning) return "does not run";
  return Text::joined({"runs, PID ", std::to_string(daemon.pid), ", since ", localTime(daemon.startedAt), " (",
                       ageText(now - daemon.startedAt), "), print level ", std::to_string(daemon.printLevel)});
}

std::string wanText(const Status& status) {
  const std::string inUse = listed(status.wansInUse);
  const std::string use = inUse.empty() ? "" : "; tunnels use " + inUse;
  if (!status.wan) return "unknown" + use;
  if (status.wan->empty()) return "none is current" + use;
  return *status.wan + (inUse == *status.wan ? ", which tunnels use" : use);
}

std::string serviceText(const IpsecService& service) {
  if (!service.complaint.empty()) return service.complaint;
  const std::string written = std::to_string(service.written) + " written connections";
  if (!service.isRunning) return "the service does not run; " + written;
  return Text::joined({"the service runs and has loaded ", std::to_string(service.loaded), " of ", written});
}

Colour colourOf(TunnelState state) {
  switch (state) {
    case TunnelState::kUp:
      return Colour::kGreen;
    case TunnelState::kDown:
      return Colour::kRed;
    case TunnelState::kStale:
      return Colour::kGrey;
    default:
      return Colour::kYellow;
  }
}

/// With binary prefixes, in at most ten columns: "999 B", "1.2 KiB".
std::string bytesText(std::uint64_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + " B";
  std::size_t unit = 0;
  for (; bytes >= 1024 * std::uint64_t{1024}; bytes /= 1024) ++unit;
  const std::string tenths = std::to_string(bytes * 10 / 1024);
  constexpr std::array<const char*, 6> kUnits{" KiB", " MiB", " GiB", " TiB", " PiB", " EiB"};
  const std::string_view digits = tenths;
  return Text::joined({digits.substr(0, digits.size() - 1), ".", digits.substr(digits.size() - 1), kUnits.at(unit)});
}

std::string right(std::string_view text, std::size_t columns) {
  return std::string(columns - std::min(text.size(), columns), ' ').append(text);
}

std::string_view orDash(std::string_view text) {
  return text.empty() ? "-" : text;
}

/// One cell, with a blank behind what fills it.
std::string cell(std::string_view text, std::size_t columns) {
  return column(text, columns - 1) + " ";
}

std::string heading() {
  const std::string cells = Text::joined(
      {cell("KIND", kKindColumns), cell("NAME", kNameColumns), cell("STATE", kStateColumns), cell("LOCAL", kEndColumns),
       cell("REMOTE", kEndColumns), right("RECEIVED", kBytesColumns), right("SENT", kBytesColumns)});
  return coloured(Colour::kBold, cells) + "\n";
}

std::string rowText(const TunnelRow& row) {
  const auto bytes = [&row](std::uint64_t Traffic::*way) {
    return right(row.traffic ? bytesText((*row.traffic).*way) : "-", kBytesColumns);
  };
  const TunnelState state = row.verdict.state;
  std::string text =
      Text::joined({cell(row.kind, kKindColumns), cell(row.name, kNameColumns),
                    coloured(colourOf(state), cell(textOf(state), kStateColumns)), cell(orDash(row.local), kEndColumns),
                    cell(orDash(row.remote), kEndColumns), bytes(&Traffic::received), bytes(&Traffic::sent), "\n"});
  if (!row.verdict.reason.empty()) text += paragraph(std::string(kKindColumns, ' ') + row.verdict.reason, kKindColumns);
  return text;
}

std::string routerText(const Status& status) {
  std::string text = line("Daemon", daemonText(status.daemon, status.time));
  for (const std::string& remark : status.daemon.remarks) text += line("", remark);
  text += line("API", status.apiComplaint.empty() ? "answers" : status.apiComplaint);
  text += line("WAN", wanText(status));
  text += line("IPsec", serviceText(status.ipsec));
  return status.kernelComplaint.empty() ? text : text + line("Kernel", status.kernelComplaint);
}

}  // namespace

std::string statusText(const Status& status) {
  std::string text = routerText(status) + "\n";
  if (status.tunnels.empty()) return text + "There is no tunnel, and none is configured as far as is known.\n";
  text += heading();
  for (const TunnelRow& row : status.tunnels) text += rowText(row);
  return text;
}

#include <algorithm>
#include <array>
#include <string>

#include "openvpn/option_text.h"
#include "tunnelctl/check_addresses.h"
#include "tunnelctl/check_devices.h"
#include "tunnelctl/check_lines.h"
#include "tunnelctl/check_owners.h"
#include "tunnelctl/check_pem.h"
#include "tunnelctl/check_rules.h"

namespace {

/// What a directory takes for a file's name, without what the longest of "openvpn_NAME.status" has besides.
constexpr std::size_t kLongestName = 255 - 15;
constexpr std::string_view kEndsPath("/\0", 2);

/// Options that make a tunnel one with certificates, and not one with a static key.
constexpr std::array<const char*, 10> kTlsOptions{"<ca>",       "ca",     "capath", "pkcs12",        "<pkcs12>",
                                                  "tls-server", "client", "server", "server-bridge", "tls-client"};

/// Inline blocks that are PEM texts, and how their labels end.
struct Block {
  std::string_view name;
  std::string_view label;
};

constexpr std::array<Block, 4> kPemBlocks{
    {{"ca", "CERTIFICATE"}, {"cert", "CERTIFICATE"}, {"extra-certs", "CERTIFICATE"}, {"key", "PRIVATE KEY"}}};

bool has(const std::string& text, const char* option) {
  std::string ignored;
  return getConfigOption(text, option, ignored);
}

std::string argumentsOf(const std::string& text, const char* option) {
  std::string arguments;
  getConfigOption(text, option, arguments);
  return arguments;
}

bool isTypedDevice(std::string_view device) {
  return device.substr(0, 3) == "tun" || device.substr(0, 3) == "tap";
}

void checkName(const Place& place, Findings& findings) {
  const auto name = place.text();
  if (!name) return;
  if (name->empty() && place.isInForce()) {
    findings.add(place, Problem::kNoName);
  } else if (name->find_first_of(kEndsPath) != std::string_view::npos || name->size() > kLongestName) {
    findings.add(place, Problem::kOvpnName, {*name, "is no part of a file's name, and the tunnel is left out"});
  }
}

/// The device's name stands unquoted in the file, as far as the kernel takes one.
void checkDevice(const Place& tunnel, const std::string& text, Findings& findings) {
  std::string device = argumentsOf(text, "dev");
  if (!isTypedDevice(device) && (device.empty() || !has(text, "dev-type"))) {
    findings.add(tunnel["config"], Problem::kOvpnDevice, {device});
    return;
  }
  device = interfaceName(device, std::string(tunnel["name"].textOrNothing()));
  if (device.find_first_of(kEndsPath) != std::string::npos) return;  // told of the file's name already
  if (device.find('\\') != std::string::npos || objectionToDeviceName(device) != nullptr)
    findings.add(tunnel["name"], Problem::kOvpnName,
                 {device, "is no device's name, and openvpn ends at once, or makes another"});
}

/// The far end is pinged through the shell.
void checkPing(const Place& config, const std::string& text, Findings& findings) {
  const std::string address = pingAddressOf(argumentsOf(text, "ifconfig"));
  if (has(text, "<ca>") || address.empty()) return;
  const auto bits = parseAddress(address);
  const bool isMask = bits && (*bits >> 24U) == 255;
  if (hasShellCharacter(address)) {
    findings.add(config, Problem::kShellCharacters, {address});
  } else if (!isHost(address) || isMask) {
    findings.add(config, Problem::kOvpnPing, {address});
  }
}

void checkStaticKey(const Place& config, const std::string& text, Findings& findings) {
  const auto isThere = [&text](const char* option) { return has(text, option); };
  if (std::any_of(kTlsOptions.begin(), kTlsOptions.end(), isThere)) return;
  if (!has(text, "secret") && !has(text, "<secret>")) findings.add(config, Problem::kOvpnNoSecret);
  const bool needsAddress = argumentsOf(text, "dev").compare(0, 3, "tap") != 0;  // a bridge has the address of a tap
  if (needsAddress && !has(text, "ifconfig")) findings.add(config, Problem::kOvpnNoIfconfig);
}

/// The name of the inline block that a line opens, or "".
std::string_view openedBlock(std::string_view line) {
  const bool isTag = line.size() > 2 && line[0] == '<' && line[1] != '/' && line.back() == '>';
  return isTag && line.find(' ') == std::string_view::npos ? line.substr(1, line.size() - 2) : "";
}

bool closesBlock(std::string_view line, std::string_view name) {
  return line.substr(0, 2) == "</" && line.substr(2, name.size()) == name && line.substr(2 + name.size(), 1) == ">";
}

void checkPemBlock(const Place& config, std::string_view name, std::string_view contents, Findings& findings) {
  for (const Block& block : kPemBlocks) {
    if (name == block.name && !findPem(contents, block.label))
      findings.add(config, Problem::kOvpnInline, {name, "PEM text"});
  }
}

void checkBlocks(const Place& config, std::string_view text, Findings& findings) {
  while (!text.empty()) {
    const std::string_view open = openedBlock(takeLine(text));
    if (open.empty()) continue;
    const std::string_view contents = text;
    bool isClosed = false;
    while (!text.empty() && !isClosed) isClosed = closesBlock(takeLine(text), open);
    if (isClosed) {
      checkPemBlock(config, open, contents.substr(0, contents.size() - text.size()), findings);
    } else {
      findings.add(config, Problem::kOvpnInline, {open, "end"});
    }
  }
}

void checkConfig(const Place& tunnel, Findings& findings) {
  const Place config = tunnel["config"];
  if (!config.text() || (config.text() == "" && !tunnel.isInForce())) return;
  const std::string text(*config.text());
  checkDevice(tunnel, text, findings);
  checkBlocks(config, text, findings);
  checkPing(config, text, findings);
  checkStaticKey(config, text, findings);
  if (has(text, "ca") && !has(text, "<ca>")) findings.add(config, Problem::kOvpnCaFile);
  if (has(text, "daemon")) findings.add(config, Problem::kOvpnDaemon);
  const std::string directory = argumentsOf(text, "client-config-dir");
  if (hasShellCharacter(directory)) findings.add(config, Problem::kShellCharacters, {directory});
}

}  // namespace

void checkOvpnTunnels(const Place& root, Findings& findings) {
  Owners names(Problem::kOvpnNameTwice);
  for (const Place& tunnel : ovpnTunnelsOf(root)) {
    const Place name = tunnel["name"];
    checkName(name, findings);
    if (name.text()) names.add(*name.text(), tunnel, name, findings);
    checkConfig(tunnel, findings);
  }
}

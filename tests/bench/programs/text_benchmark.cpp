// The two texts that can be long: an OpenVPN configuration of up to a megabyte, and the conn sections of an IPsec
// tunnel for up to a thousand local networks. Reported are bytes per second, so that a step whose cost grows faster
// than the text shows.

#include <benchmark/benchmark.h>
#include <json/value.h>

#include <string>

#include "ipsec/connection_section.h"
#include "openvpn/configuration.h"
#include "openvpn/option_text.h"

namespace {

constexpr std::int64_t kSmallestText = 10 * 1000;
constexpr std::int64_t kLargestText = 1000 * 1000;
constexpr std::int64_t kFewestNetworks = 10;
constexpr std::int64_t kMostNetworks = 1000;

/// Options with arguments and blank lines, as a person writes them, until the text has the size; none is "verb", so
/// that a look for that goes through to the end.
std::string configurationOf(std::int64_t size) {
  std::string text = "dev tun\nifconfig 10.8.0.1 10.8.0.2\n";
  while (static_cast<std::int64_t>(text.size()) < size) {
    text += "  route 192.168.10.0 255.255.255.0\n\n# MIIDdzCCAl+gAwIBAgIEAgAAuTANBgkqhkiG9w0BAQUFADBa\n";
  }
  return text;
}

void countBytes(benchmark::State& state, std::size_t size) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(size));
}

void readOption(benchmark::State& state) {
  const std::string text = configurationOf(state.range(0));
  std::string value;
  for (auto _ : state) benchmark::DoNotOptimize(getConfigOption(text, "verb", value));
  countBytes(state, text.size());
}

void writeOption(benchmark::State& state) {
  const std::string text = configurationOf(state.range(0));
  for (auto _ : state) {
    std::string changed = text;
    setConfigOption(changed, "verb", "3");
    benchmark::DoNotOptimize(changed);
  }
  countBytes(state, text.size());
}

/// All that a run does with one tunnel's text before it writes the file.
void composeFile(benchmark::State& state) {
  const std::string text = configurationOf(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(composeOvpnFile("office", text, "3"));
  countBytes(state, text.size());
}

Json::Value tunnelWithNetworks(std::int64_t count) {
  Json::Value tunnel;
  tunnel["name"] = "office";
  tunnel["type"] = "IKEv2";
  tunnel["remoteWanIp"] = "203.0.113.20";
  tunnel["remoteNetworkIp"] = "192.168.70.0";
  tunnel["remoteNetworkMask"] = 24;
  tunnel["phase1"] = "aes256-sha2_256;modp2048";
  tunnel["phase2"] = "aes256-sha2_256;modp2048";
  for (std::int64_t i = 0; i < count; ++i) {
    tunnel["localIpWithCidr"].append("10." + std::to_string(i / 250) + "." + std::to_string(i % 250) + ".0/24");
  }
  return tunnel;
}

void buildConnections(benchmark::State& state) {
  const Json::Value tunnel = tunnelWithNetworks(state.range(0));
  std::size_t size = 0;
  for (auto _ : state) size = buildConnSection(tunnel, "198.51.100.2", "\tauthby=secret\n").size();
  countBytes(state, size);
}

BENCHMARK(readOption)->RangeMultiplier(10)->Range(kSmallestText, kLargestText);
BENCHMARK(writeOption)->RangeMultiplier(10)->Range(kSmallestText, kLargestText);
BENCHMARK(composeFile)->RangeMultiplier(10)->Range(kSmallestText, kLargestText);
BENCHMARK(buildConnections)->RangeMultiplier(10)->Range(kFewestNetworks, kMostNetworks);

}  // namespace

BENCHMARK_MAIN();

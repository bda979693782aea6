// All that `status` goes by, as it was found: nothing here is judged.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tunnelctl/ip_listing.h"
#include "tunnelctl/ipsec_listing.h"
#include "tunnelctl/processes.h"
#include "tunnelctl/status_configuration.h"

/// Where the C library keeps semaphores; their names follow at once.
#ifdef __GLIBC__
constexpr const char* kSemaphores = "/dev/shm/sem.";
#else
constexpr const char* kSemaphores = "/dev/shm/";
#endif

/// What an instance leaves for others to find (core/single_instance.h).
struct InstanceMarks {
  bool hasSemaphore = false;
  std::optional<std::string> pidFile{};  ///< its text
};

struct TimedText {
  std::string text{};
  std::int64_t writtenAt = 0;  ///< seconds since the epoch
};

/// What lies in /var/run of an OpenVPN tunnel.
struct OpenvpnFiles {
  std::string name{};
  bool hasConfiguration = false;
  std::string device{};       ///< "" where the configuration has none
  std::string remote{};       ///< the other end, "" for who waits for it
  std::string pingAddress{};  ///< the far end that the daemon pings, "" for none
  std::optional<TimedText> status{};
  bool isStatusForbidden = false;  ///< openvpn lets nobody but root read it
  std::optional<TimedText> connect{};
};

struct Facts {
  std::int64_t now = 0;  ///< seconds since the epoch
  bool isRoot = true;
  std::string apiComplaint{};                      ///< "" when the API has answered
  Configuration configuration{};                   ///< empty when it has not
  std::map<std::string, std::string> addresses{};  ///< of host names that were looked up; "" for none
  InstanceMarks marks{};
  std::vector<Process> processes{};
  int devicesStatus = 0;  ///< the exit status of `ip`, or kNoAnswer; devices could be listed when it is 0
  std::vector<Device> devices{};
  int routesStatus = 0;  ///< likewise
  std::vector<Route> routes{};
  int ipsecStatus = 0;          ///< the exit status of `ipsec statusall`, or kNoAnswer
  bool isIpsecRunning = false;  ///< the service told something
  IpsecListing ipsec{};
  std::vector<WrittenConnection> connections{};
  std::vector<OpenvpnFiles> openvpn{};  ///< each tunnel once
};

bool isConfigurationKnown(const Facts& facts);
bool areDevicesKnown(const Facts& facts);
bool areRoutesKnown(const Facts& facts);

/// The child that runs an OpenVPN tunnel, or null.
const Process* openvpnOf(const std::string& name, const Facts& facts);

/// The device of that name, or null.
const Device* deviceOf(const std::string& name, const Facts& facts);

/// Hosts whose tunnels are not there, or have no remote end, so that it matters whether their names have addresses.
std::vector<std::string> hostsToLookUp(const Facts& facts);

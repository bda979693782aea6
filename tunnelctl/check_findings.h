// What can be wrong with a configuration.
#pragma once

#include <array>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "tunnelctl/check_place.h"

enum class Severity {
  kWarning,  ///< something will not do what was meant
  kError,    ///< the run ends, a tunnel or a part of it does not come up, or is open to anybody
};

/// In the order of their table.
enum class Problem {
  kEndsRun,
  kWouldEndRun,
  kCountsAsAbsent,
  kConverted,
  kUnknownMember,
  kNoWan,
  kWanAddress,
  kDeviceName,
  kIpKeyword,
  kKernelDevice,
  kExistingDevice,
  kSameDevice,
  kShellCharacters,
  kGreRemote,
  kSameRemote,
  kTunnelAddress,
  kHalfAddress,
  kTtl,
  kRouteSkipped,
  kRouteNetwork,
  kRouteTwice,
  kCheckPeriod,
  kNoLocalNetwork,
  kInterfaceAddress,
  kInterfaceBridge,
  kInterfaceSpelling,
  kMaskWithHoles,
  kNoName,
  kIpsecName,
  kIpsecNameTwice,
  kHiddenFiles,
  kIkeVersion,
  kAuthMethod,
  kNoKey,
  kKeyCharacters,
  kIdentityCharacters,
  kNoIdentity,
  kUnusedIdentity,
  kNoCertificate,
  kNoCaCertificate,
  kNotPem,
  kUnusableKey,
  kAnyPeer,
  kRemoteNetwork,
  kAllTraffic,
  kSingleAddress,
  kUnknownProposal,
  kUnusedProposal,
  kNoProposal,
  kSha2,
  kEndlessKeys,
  kOvpnName,
  kOvpnNameTwice,
  kOvpnDevice,
  kOvpnCaFile,
  kOvpnNoSecret,
  kOvpnNoIfconfig,
  kOvpnPing,
  kOvpnInline,
  kOvpnDaemon,
  kOverlapsLan,
  kOverlapsTunnel,
};

struct ProblemKind {
  Problem problem;
  const char* id;
  Severity severity;
  const char* sentence;  ///< the effect and the mend, with "{}" for what differs from finding to finding
};

constexpr std::size_t kProblems = static_cast<std::size_t>(Problem::kOverlapsTunnel) + 1;

/// A row for each problem, in their order. docs/findings.md says what they mean.
const std::array<ProblemKind, kProblems>& problemKinds();

const ProblemKind& kindOf(Problem problem);
const char* nameOf(Severity severity);

struct Finding {
  Problem problem;
  Severity severity;
  std::string pointer;  ///< RFC 6901; may end in a member that is absent
  std::string message;  ///< a sentence without control characters
};

class Findings {
 public:
  /// Tells the problem's sentence with these texts, as many as it has "{}", in their places; long ones are cut. What is
  /// wrong at a place that is not in force is a warning.
  void add(const Place& place, Problem problem, std::initializer_list<std::string_view> texts = {});

  /// Sorted by the documents' order, and in each by its elements.
  std::vector<Finding> sorted() const;

 private:
  std::vector<Finding> list_;
};

/// A value as a message shows it: a text in quotes, of an array or object that it is one.
std::string shownValue(const Json::Value& value);

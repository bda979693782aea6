// The members that the program reads: as what, where in a run, and under which condition.
#pragma once

#include <array>
#include <cstddef>

/// How a member is read. What does not convert throws, but for kAnything.
enum class Expected : unsigned char {
  kText,          ///< asString
  kFlag,          ///< asBool
  kCount,         ///< asUInt
  kTextOrNumber,  ///< a text as it is, else asInt
  kMask,          ///< jsonToText: the same, and what is neither is empty
  kList,          ///< by index up to its size: throws for an object with members, and what is no array is empty
  kObject,        ///< its members are read: throws for all else but null
  kAnything,      ///< compared with texts
};

/// The step of a run that reads it, and so what is left when it throws.
enum class Step : unsigned char { kOpenvpn, kPull, kGre, kIpsec };

/// Under which conditions a member is read, and which of them hold for a record: a sum.
using Readings = unsigned int;
constexpr Readings kNever = 0;
constexpr Readings kAlways = 1;
constexpr Readings kEnabled = 2;       ///< the tunnel is enabled
constexpr Readings kSections = 4;      ///< ... and has local networks to connect
constexpr Readings kKeying = 8;        ///< ... and a known type of key exchange
constexpr Readings kPsk = 16;          ///< ... and a pre-shared key
constexpr Readings kCertificate = 32;  ///< enabled, with certificates
constexpr Readings kUid = 64;
constexpr Readings kIdentities = 128;
constexpr Readings kAvailable = 256;  ///< conditions of a network interface
constexpr Readings kNitype = 512;
constexpr Readings kBridge = 1024;
constexpr Readings kIpv4 = 2048;
constexpr Readings kComplete = 4096;  ///< a route with both members; an OpenVPN tunnel that is the first of its name

struct Member {
  std::array<char, 18> name;
  Expected expected;
  Step step;
  Readings reading;
};

/// The rows of a table.
struct Members {
  const Member* rows;
  std::size_t count;

  const Member* begin() const { return rows; }
  const Member* end() const { return rows + count; }
};

Members membersOfWan();  ///< read with care: what does not convert counts as absent
Members membersOfGreTunnel();
Members membersOfRoute();
Members membersOfInterface();
Members membersOfIpv4();
Members membersOfIpsecTunnel();
Members membersOfOvpnTunnel();
Members membersOfSyslog();

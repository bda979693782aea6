#include <array>
#include <set>
#include <string>

#include "tunnelctl/check_lan.h"
#include "tunnelctl/check_members.h"
#include "tunnelctl/check_rules.h"

namespace {

enum class Verdict { kFits, kConverted, kAbsent, kThrows };

/// What a run leaves that throws in this step.
constexpr std::array<const char*, 4> kLeft{"the GRE tunnels are gone, and IPsec and OpenVPN go on as they were",
                                           "every tunnel is down",
                                           "the GRE tunnels before it are up, and IPsec and OpenVPN are down",
                                           "the GRE tunnels are up, and IPsec and OpenVPN are down"};

struct Words {
  const char* complaint;
  const char* mend;
};

/// In the order of Expected.
constexpr std::array<Words, 7> kWords{{{"is no text", "write a text"},
                                       {"is neither true nor false", "write true or false, without quotes"},
                                       {"is no number from 0 to 4294967295", "write such a number, without quotes"},
                                       {"is neither a text nor a number that fits 32 bits", "write a number"},
                                       {"is neither a text nor a number that fits 32 bits", "write a number"},
                                       {"is no array", "write an array"},
                                       {"is no object", "write an object"}}};

constexpr Words kEmptyRecord{"is an empty record", "leave it out"};
constexpr Words kNoRecord{"is no object", "leave it out"};

const Words& wordsFor(Expected expected) {
  return kWords[static_cast<std::size_t>(expected)];
}

Verdict judgeText(const Json::Value& value) {
  if (!value.isConvertibleTo(Json::stringValue)) return Verdict::kThrows;
  return value.isBool() || value.type() == Json::realValue ? Verdict::kConverted : Verdict::kFits;
}

Verdict judgeFlag(const Json::Value& value) {
  if (!value.isConvertibleTo(Json::booleanValue)) return Verdict::kThrows;
  const bool isOdd = value.isNumeric() && value.asDouble() != 0 && value.asDouble() != 1;
  return isOdd ? Verdict::kConverted : Verdict::kFits;
}

Verdict judgeNumber(const Json::Value& value, Json::ValueType type) {
  if (!value.isConvertibleTo(type)) return Verdict::kThrows;
  return value.isNull() || (value.isNumeric() && value.isIntegral()) ? Verdict::kFits : Verdict::kConverted;
}

Verdict judgeList(const Json::Value& value) {
  if (value.isNull() || value.isArray()) return Verdict::kFits;
  return value.isObject() && !value.empty() ? Verdict::kThrows : Verdict::kAbsent;
}

Verdict judge(const Json::Value& value, Expected expected) {
  switch (expected) {
    case Expected::kText:
      return judgeText(value);
    case Expected::kFlag:
      return judgeFlag(value);
    case Expected::kCount:
      return judgeNumber(value, Json::uintValue);
    case Expected::kTextOrNumber:
      return value.isString() ? Verdict::kFits : judgeNumber(value, Json::intValue);
    case Expected::kMask:  // what is neither is found by who looks at the mask
      return value.isNumeric() ? judgeNumber(value, Json::intValue) : Verdict::kFits;
    case Expected::kList:
      return judgeList(value);
    case Expected::kObject:
      return value.isNull() || value.isObject() ? Verdict::kFits : Verdict::kThrows;
    case Expected::kAnything:
      break;
  }
  return Verdict::kFits;
}

/// What a value becomes that is converted.
std::string convertedTo(const Json::Value& value, Expected expected) {
  if (expected == Expected::kText) return "\"" + value.asString() + "\"";
  if (expected == Expected::kFlag) return "true";
  return std::to_string(value.asInt64());
}

void reportAbsence(const Place& place, const Words& words, Findings& findings) {
  findings.add(place, Problem::kCountsAsAbsent, {shownValue(place.value()), words.complaint, words.mend});
}

/// Whether the value is one that nobody may see.
bool isKey(const Place& place) {
  return place.name() == "psk" || place.name() == "localPrivKey" || place.name() == "config";
}

void reportConversion(const Place& place, Expected expected, Findings& findings) {
  const std::string value = isKey(place) ? "A number or flag" : shownValue(place.value());
  const std::string converted = isKey(place) ? "a text" : convertedTo(place.value(), expected);
  findings.add(place, Problem::kConverted, {value, converted, wordsFor(expected).mend});
}

void reportThrow(const Place& place, Expected expected, Step step, bool isRead, Findings& findings) {
  const std::string value = shownValue(place.value());
  const Words& words = wordsFor(expected);
  const char* const left = kLeft[static_cast<std::size_t>(step)];
  if (isRead) {
    findings.add(place, Problem::kEndsRun, {value, words.complaint, left, words.mend});
  } else {
    findings.add(place, Problem::kWouldEndRun, {value, words.complaint, words.mend});
  }
}

/// Whether it converts, if oddly.
bool check(const Place& place, Expected expected, Step step, bool isRead, Findings& findings) {
  switch (judge(place.value(), expected)) {
    case Verdict::kFits:
      return true;
    case Verdict::kConverted:
      reportConversion(place, expected, findings);
      return true;
    case Verdict::kAbsent:
      reportAbsence(place, wordsFor(expected), findings);
      return false;
    case Verdict::kThrows:
      reportThrow(place, expected, step, isRead, findings);
      return false;
  }
  return false;
}

/// `readings`: those that hold for the record.
void checkMembers(const Place& record, Members members, Readings readings, Findings& findings) {
  for (const Member& member : members) {
    const Place place = record[member.name.data()];
    if (!place.value().isNull()) check(place, member.expected, member.step, (member.reading & readings) != 0, findings);
  }
}

/// Whether it is a record with members to look at. null is one without.
bool checkRecord(const Place& record, Step step, bool isRead, Findings& findings) {
  if (record.value().isNull()) reportAbsence(record, kEmptyRecord, findings);
  return !record.value().isNull() && check(record, Expected::kObject, step, isRead, findings);
}

/// In a WAN list what is of a wrong type counts as absent.
void checkWan(const Place& wan, Findings& findings) {
  if (!wan.value().isObject()) reportAbsence(wan, kNoRecord, findings);
  for (const Member& member : membersOfWan()) {
    const Place place = wan[member.name.data()];
    if (judge(place.value(), member.expected) == Verdict::kThrows) {
      reportAbsence(place, wordsFor(member.expected), findings);
    } else {
      check(place, member.expected, member.step, true, findings);
    }
  }
}

void checkWanList(const Place& wans, Findings& findings) {
  if (!wans.value().isNull() && !wans.value().isArray()) reportAbsence(wans, wordsFor(Expected::kList), findings);
  for (const Place& wan : wans.elements()) checkWan(wan, findings);
}

void checkRoutes(const Place& routes, bool isRead, Findings& findings) {
  for (const Place& route : routes.elements()) {
    if (!checkRecord(route, Step::kGre, isRead, findings)) continue;
    const bool isComplete = route.value().isMember("ip") && route.value().isMember("mask");
    checkMembers(route, membersOfRoute(), isRead && isComplete ? kComplete : kNever, findings);
  }
}

Readings readingsOfTunnel(const Place& read) {
  return read["enabled"].flag() ? kAlways | kEnabled : kAlways;
}

Readings readingsOfIpsec(const Place& read, bool hasNetworks) {
  Readings readings = readingsOfTunnel(read);
  if ((readings & kEnabled) == 0) return readings;
  const bool isCertificate = read["authMethod"].text() == "rsasig";
  const bool hasIdentity = !read["localId"].textOrNothing().empty() || !read["remoteId"].textOrNothing().empty();
  if (isCertificate) readings |= kCertificate;
  if (!isCertificate || hasIdentity) readings |= kUid;
  if (isCertificate || read["uid"].flag()) readings |= kIdentities;
  if (!hasNetworks) return readings;
  readings |= kSections;
  const auto type = read["type"].text();
  if (type != "IKE" && type != "IKEv2") return readings;
  return readings | kKeying | (isCertificate ? 0U : kPsk);
}

Readings readingsOfInterface(const Interface& interface, bool looksAtBridges) {
  Readings readings = kAlways;
  const bool isAvailable = interface.isLan && interface.place["available"].flag();
  if (interface.isLan) readings |= kAvailable;
  if (isAvailable || looksAtBridges) readings |= kNitype;
  if (interface.isAvailableLan || (interface.isBridge && looksAtBridges)) readings |= kBridge;
  return interface.counts ? readings | kIpv4 : readings;
}

/// The records of a list that is read by index, or none where it is none.
std::vector<Place> recordsOf(const Place& list, Findings& findings) {
  std::vector<Place> records;
  if (!check(list, Expected::kList, Step::kPull, true, findings)) return records;
  for (const Place& record : list.elements()) {
    if (checkRecord(record, Step::kPull, true, findings)) records.push_back(record);
  }
  return records;
}

void checkInterfaces(const Place& given, const Place& read, Findings& findings) {
  if (!check(given["ni"], Expected::kObject, Step::kPull, true, findings)) return;
  const std::vector<Place> records = recordsOf(given["ni"]["nis"], findings);
  const std::vector<Interface> interfaces = interfacesOf(read);
  const bool bridges = looksAtBridges(interfaces);
  for (std::size_t i = 0; i < records.size(); ++i) {
    const Readings readings = readingsOfInterface(interfaces[i], bridges);
    checkMembers(records[i], membersOfInterface(), readings, findings);
    checkMembers(records[i]["ipv4"], membersOfIpv4(), readings, findings);
  }
}

/// The list of OpenVPN tunnels is the only one whose elements may have names.
void checkOvpnList(const Place& list, Findings& findings) {
  const Json::Value& value = list.value();
  const Words& words = wordsFor(Expected::kList);
  if (value.isNull() || value.isArray()) return;
  if (value.isObject() && !value.empty()) {
    findings.add(list, Problem::kConverted, {"An object", "the array of its members", words.mend});
  } else {
    reportAbsence(list, words, findings);
  }
}

/// Of several of one name the configuration of the first alone is read.
void checkOvpnTypes(const Place& given, const Place& read, Findings& findings) {
  checkOvpnList(given["ovpnTunnels"], findings);
  const std::vector<Place> records = given["ovpnTunnels"].elementsOrMembers();
  const std::vector<Place> readRecords = read["ovpnTunnels"].elementsOrMembers();
  bool anyEnabled = false;
  std::set<std::string_view> names;
  for (std::size_t i = 0; i < records.size(); ++i) {
    if (!checkRecord(records[i], Step::kOpenvpn, true, findings)) continue;
    Readings readings = readingsOfTunnel(readRecords[i]);
    const bool isEnabled = (readings & kEnabled) != 0;
    if (isEnabled && names.insert(readRecords[i]["name"].textOrNothing()).second) readings |= kComplete;
    checkMembers(records[i], membersOfOvpnTunnel(), readings, findings);
    anyEnabled = anyEnabled || isEnabled;
  }
  if (!check(given["syslog"], Expected::kObject, Step::kOpenvpn, anyEnabled, findings)) return;
  checkMembers(given["syslog"], membersOfSyslog(), anyEnabled ? kEnabled : kNever, findings);
}

}  // namespace

void checkTypes(const Place& given, const Place& read, Findings& findings) {
  checkWanList(given["wans"], findings);
  for (const Place& tunnel : recordsOf(given["greTunnels"], findings)) {
    const Readings readings = readingsOfTunnel(tunnel);
    checkMembers(tunnel, membersOfGreTunnel(), readings, findings);
    checkRoutes(tunnel["routes"], (readings & kEnabled) != 0, findings);
  }
  checkInterfaces(given, read, findings);
  const bool hasNetworks = hasLocalNetworks(read);
  const std::vector<Place> tunnels = recordsOf(given["ipsecTunnels"], findings);
  const std::vector<Place> readTunnels = ipsecTunnelsOf(read);
  for (std::size_t i = 0; i < tunnels.size(); ++i)
    checkMembers(tunnels[i], membersOfIpsecTunnel(), readingsOfIpsec(readTunnels[i], hasNetworks), findings);
  checkOvpnTypes(given, read, findings);
}

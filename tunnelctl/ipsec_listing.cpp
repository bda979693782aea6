#include "tunnelctl/ipsec_listing.h"

#include <array>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>

#include "ipsec/connection_section.h"
#include "support/text.h"

namespace {

using ZEL::Text;

/// An indented line "key=value".
void readSetting(const std::string& line, WrittenConnection& connection) {
  const std::size_t equals = line.find('=');
  if (equals == std::string::npos) return;
  const std::string key = Text::trim(line.substr(0, equals));
  const std::string value = Text::trim(line.substr(equals + 1));
  if (key == "left") connection.left = value;
  if (key == "leftsubnet") connection.leftSubnet = value;
  if (key == "right") connection.right = value;
}

struct Unit {
  const char* name;
  std::int64_t seconds;
};

constexpr std::array<Unit, 4> kUnits{{{"second", 1}, {"minute", 60}, {"hour", 3600}, {"day", 86400}}};

/// Of a text that begins like "29 seconds ago".
std::int64_t ageIn(const std::string& text) {
  char* rest = nullptr;
  const long long number = strtoll(text.c_str(), &rest, 10);
  if (number < 0 || number > INT32_MAX) return 0;
  for (const Unit& unit : kUnits) {
    if (Text::beginsWith(rest, Text::joined({" ", unit.name}))) return number * unit.seconds;
  }
  return 0;
}

/// "office_192_168_10_0_24[3]: rest" is split into the name, the number with its brackets, and the rest.
struct AssociationLine {
  std::string name;
  std::string number;
  std::string rest;
};

std::optional<AssociationLine> associationIn(const std::string& line, char opening, std::string_view closing) {
  const std::size_t end = line.find(closing);
  const std::size_t begin = line.rfind(opening, end);
  if (end == std::string::npos || begin == std::string::npos) return std::nullopt;
  if (line.find_first_not_of("0123456789", begin + 1) != end) return std::nullopt;
  return AssociationLine{line.substr(0, begin), line.substr(begin, end - begin),
                         Text::trim(line.substr(end + closing.size()))};
}

/// Whether both ends have a number for it: "IKEv2 SPIs: e1b822a76d110be5_i* 0000000000000000_r" has been begun only.
bool hasBothNumbers(const std::string& text) {
  const std::size_t end = text.find("_r");
  const std::size_t begin = text.rfind(' ', end);
  return end == std::string::npos || begin == std::string::npos || text.find_first_not_of('0', begin + 1) != end;
}

/// Each one has several lines: the state ("ESTABLISHED 29 seconds ago, ..." or "CONNECTING, ..."), the numbers that
/// both ends have given it, what is being done.
class KeyExchanges {
 public:
  void read(const AssociationLine& line) {
    constexpr std::string_view established = "ESTABLISHED ";
    if (Text::beginsWith(line.rest, established)) {
      add(line, {line.name, true, ageIn(line.rest.substr(established.size()))});
    } else if (Text::beginsWith(line.rest, "CONNECTING,")) {
      add(line, {line.name, false, 0});
    } else if (line.rest.find(" SPIs: ") != std::string::npos && number_ == line.number && !exchanges_.empty()) {
      exchanges_.back().isAnswered = hasBothNumbers(line.rest);
    }
  }

  const std::vector<KeyExchange>& all() const { return exchanges_; }

 private:
  void add(const AssociationLine& line, KeyExchange exchange) {
    exchanges_.push_back(std::move(exchange));
    number_ = line.number;
  }

  std::vector<KeyExchange> exchanges_;
  std::string number_;  ///< of the last one
};

/// The number in front of a word, or 0.
std::uint64_t countBefore(const std::string& text, std::string_view word) {
  const std::size_t end = text.find(word);
  if (end == std::string::npos) return 0;
  const std::size_t before = text.find_last_not_of("0123456789", end == 0 ? 0 : end - 1);
  return strtoull(text.c_str() + (before == std::string::npos ? 0 : before + 1), nullptr, 10);
}

/// Each one has several lines: the state ("INSTALLED, TUNNEL, ..."), what protects and how much
/// ("..., 84 bytes_i (1 pkt, 1s ago), 84 bytes_o, ..."), the networks.
class Children {
 public:
  void read(const AssociationLine& line) {
    if (children_.empty() || line.name != children_.back().connection || line.number != number_) {
      children_.push_back({line.name});
      number_ = line.number;
    }
    ChildAssociation& child = children_.back();
    // While its keys are being renewed it goes on; one that has been replaced ("REKEYED") carries nothing more.
    for (const char* state : {"INSTALLED,", "REKEYING,", "UPDATING,"}) {
      if (Text::beginsWith(line.rest, state)) child.isInstalled = true;
    }
    child.received += countBefore(line.rest, " bytes_i");
    child.sent += countBefore(line.rest, " bytes_o");
  }

  const std::vector<ChildAssociation>& all() const { return children_; }

 private:
  std::vector<ChildAssociation> children_;
  std::string number_;
};

/// "name:   child:  ..." tells of a connection, "name:  left...right  IKEv2, ..." of the peer of those that follow.
void readConnection(const std::string& line, std::string& peer, IpsecListing& listing) {
  if (const std::size_t end = line.find(":   child:  "); end != std::string::npos) {
    listing.peers[line.substr(0, end)] = peer;
  } else if (const std::size_t colon = line.find(":  "); colon != std::string::npos && line[colon + 3] != ' ') {
    peer = line.substr(0, colon);
  }
}

}  // namespace

std::vector<WrittenConnection> parseIpsecConf(const std::string& text) {
  std::vector<WrittenConnection> connections;
  bool inside = false;
  for (const std::string& line : Text::split(text, "\n", 0)) {
    if (line.empty()) continue;
    if (line[0] == '\t' || line[0] == ' ') {
      if (inside) readSetting(line, connections.back());
      continue;
    }
    inside = Text::beginsWith(line, "conn ") && line != "conn %default";
    if (inside) connections.push_back({Text::trim(line.substr(5))});
  }
  return connections;
}

std::string tunnelOf(const WrittenConnection& connection) {
  const std::string suffix = makeConnName("", connection.leftSubnet);
  const std::string& name = connection.name;
  const bool hasSuffix = name.size() >= suffix.size() && name.substr(name.size() - suffix.size()) == suffix;
  return hasSuffix ? name.substr(0, name.size() - suffix.size()) : name;
}

bool parseIpsecStatus(const std::string& output, IpsecListing& listing) {
  if (Text::trim(output).empty()) return false;
  listing = {};
  KeyExchanges exchanges;
  Children children;
  std::string peer;
  bool isConnection = false;
  for (const std::string& shown : Text::split(output, "\n", 0)) {
    const std::string line = Text::trim(shown);
    if (Text::beginsWith(line, "Connections:")) {
      isConnection = true;
    } else if (Text::beginsWith(line, "Routed Connections:") || Text::beginsWith(line, "Shunted Connections:") ||
               Text::beginsWith(line, "Security Associations (")) {
      isConnection = false;
    } else if (isConnection) {
      readConnection(line, peer, listing);
    } else if (const auto exchange = associationIn(line, '[', "]: ")) {
      exchanges.read(*exchange);
    } else if (const auto child = associationIn(line, '{', "}:  ")) {
      children.read(*child);
    }
  }
  listing.keyExchanges = exchanges.all();
  listing.children = children.all();
  return true;
}

// A place in a configuration.
#pragma once

#include <json/value.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A value, how to get there, and whether the program acts on it as things are: a disabled tunnel is not in force. The
/// value and the names of members must outlive the place, which owns nothing: there are many of them.
class Place {
 public:
  explicit Place(const Json::Value& root) : value_(&root) {}

  /// A member; null where there is none. In what is no object there is no place for a member: then it stays here, with
  /// a null value. No rule looks deeper than kDeepest.
  Place operator[](const char* member) const;

  /// The elements of an array in their order; none of anything else.
  std::vector<Place> elements() const;

  /// The members of an object in the order of their names; none of anything else.
  std::vector<Place> members() const;

  std::vector<Place> elementsOrMembers() const { return value_->isObject() ? members() : elements(); }

  /// The same place, not in force unless `condition` holds.
  Place inForceIf(bool condition) const;

  const Json::Value& value() const { return *value_; }
  bool isInForce() const { return inForce_; }

  /// RFC 6901.
  std::string pointer() const;

  /// The last step of the pointer, where that is a member.
  std::string_view name() const;

  /// A text, "" for null, and nothing for anything else. Where the program reads a text, `asRead` has made one of what
  /// converts, so nothing is what throws.
  std::optional<std::string_view> text() const;

  /// The same, and "" for what throws.
  std::string_view textOrNothing() const { return text().value_or(""); }

  /// As the program reads a flag, and false where that throws.
  bool flag() const;

 private:
  static constexpr std::size_t kDeepest = 5;

  struct Step {
    std::string_view member;  ///< without data for an element
    Json::ArrayIndex element;
  };

  Place step(const Json::Value& value, const Step& step) const;

  const Json::Value* value_;
  std::array<Step, kDeepest> steps_{};
  std::size_t depth_ = 0;
  bool inForce_ = true;
};

/// The records of a list of tunnels, in force if they are enabled. What is no object is left out. Of the OpenVPN
/// tunnels alone the list may be an object.
std::vector<Place> greTunnelsOf(const Place& root);
std::vector<Place> ipsecTunnelsOf(const Place& root);
std::vector<Place> ovpnTunnelsOf(const Place& root);

#include "tunnelctl/check_place.h"

#include "support/text.h"

namespace {

/// A member's name as a pointer has it (RFC 6901, section 3).
std::string escaped(std::string_view member) {
  return ZEL::Text::replace(ZEL::Text::replace(member, "~", "~0"), "/", "~1");
}

std::vector<Place> tunnelsAmong(const std::vector<Place>& records) {
  std::vector<Place> tunnels;
  for (const Place& record : records) {
    if (record.value().isObject()) tunnels.push_back(record.inForceIf(record["enabled"].flag()));
  }
  return tunnels;
}

}  // namespace

Place Place::step(const Json::Value& value, const Step& step) const {
  Place place = *this;
  place.value_ = &value;
  place.steps_[place.depth_++] = step;
  return place;
}

Place Place::operator[](const char* member) const {
  if (value_->isObject()) {
    const std::string_view name = member;
    const Json::Value* const found = value_->find(name.data(), name.data() + name.size());
    return step(found == nullptr ? Json::Value::nullSingleton() : *found, {name, 0});
  }
  Place place = *this;
  place.value_ = &Json::Value::nullSingleton();
  return place;
}

std::vector<Place> Place::elements() const {
  std::vector<Place> places;
  const Json::ArrayIndex size = value_->isArray() ? value_->size() : 0;
  for (Json::ArrayIndex i = 0; i < size; ++i) places.push_back(step((*value_)[i], {{}, i}));
  return places;
}

std::vector<Place> Place::members() const {
  std::vector<Place> places;
  if (!value_->isObject()) return places;
  for (auto member = value_->begin(); member != value_->end(); ++member) {
    const char* end = nullptr;
    const char* const begin = member.memberName(&end);
    places.push_back(step(*member, {std::string_view(begin, static_cast<std::size_t>(end - begin)), 0}));
  }
  return places;
}

Place Place::inForceIf(bool condition) const {
  Place place = *this;
  place.inForce_ = place.inForce_ && condition;
  return place;
}

std::string Place::pointer() const {
  std::string text;
  for (std::size_t i = 0; i < depth_; ++i) {
    const Step& step = steps_[i];
    text += "/" + (step.member.data() == nullptr ? std::to_string(step.element) : escaped(step.member));
  }
  return text;
}

std::string_view Place::name() const {
  return depth_ == 0 ? std::string_view() : steps_[depth_ - 1].member;
}

std::optional<std::string_view> Place::text() const {
  const char* begin = nullptr;
  const char* end = nullptr;
  if (value_->isNull()) return "";
  if (!value_->getString(&begin, &end)) return std::nullopt;
  return std::string_view(begin, static_cast<std::size_t>(end - begin));
}

bool Place::flag() const {
  return value_->isConvertibleTo(Json::booleanValue) && value_->asBool();
}

std::vector<Place> greTunnelsOf(const Place& root) {
  return tunnelsAmong(root["greTunnels"].elements());
}

std::vector<Place> ipsecTunnelsOf(const Place& root) {
  return tunnelsAmong(root["ipsecTunnels"].elements());
}

std::vector<Place> ovpnTunnelsOf(const Place& root) {
  return tunnelsAmong(root["ovpnTunnels"].elementsOrMembers());
}

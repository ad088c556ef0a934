#include "tracker/event_encoder.h"

#include <algorithm>

#include "properties/json_encoding.h"

namespace veltrano {
namespace {

constexpr std::string_view kExtraKey = "extra_json";

// The map of properties under "extra_json"; empty when there is none.
PropertyMap extraIn(const PropertyMap& properties) {
  const auto* value = properties.find(kExtraKey);
  return value != nullptr ? asPropertyMap(*value).value_or(PropertyMap()) : PropertyMap();
}

}  // namespace

void EventEncoder::setBase(const PropertyMap& defaultProperties,
                           const PropertyMap& superProperties) {
  base_.clear();
  baseJSON_.clear();
  baseCanBeEncoded_ = true;
  baseExtra_ = extraIn(superProperties);
  for (const auto& [key, value] : defaultProperties + superProperties) {
    if (key == kExtraKey) continue;
    writer_.clear();
    writer_.startObject();
    writer_.key(key);
    const bool canBeEncoded = writeJSON(writer_, value);
    writer_.endObject();
    const std::string_view object = writer_.text();
    base_.push_back({key, std::string(object.substr(1, object.size() - 2)), canBeEncoded});
    if (!baseJSON_.empty()) baseJSON_ += ',';
    baseJSON_ += base_.back().json;
    baseCanBeEncoded_ = baseCanBeEncoded_ && canBeEncoded;
  }
}

EventRecord EventEncoder::encode(std::string_view eventName, const AutomaticProperties& automatic,
                                 const PropertyMap& eventProperties) {
  writer_.clear();
  writer_.startObject();
  writer_.key("event");
  writer_.string(eventName);
  writer_.key("properties");
  writer_.startObject();
  writeAutomatic(automatic, eventProperties);
  if (!writeBase(eventProperties) || !writeEventProperties(eventProperties) ||
      !writeExtra(automatic.trackingAuthorizationStatus, eventProperties))
    return {};
  writer_.endObject();
  writer_.endObject();
  return {std::string(writer_.text())};
}

bool EventEncoder::isInBase(std::string_view key) const {
  const auto place =
      std::lower_bound(base_.begin(), base_.end(), key,
                       [](const BaseMember& l, std::string_view r) { return l.key < r; });
  return place != base_.end() && place->key == key;
}

void EventEncoder::writeAutomatic(const AutomaticProperties& automatic,
                                  const PropertyMap& eventProperties) {
  const auto isKept = [&](std::string_view key) {
    return !isInBase(key) && eventProperties.find(key) == nullptr;
  };
  if (isKept("time")) {
    writer_.key("time");
    writer_.integer(automatic.timeInMilliseconds);
  }
  if (isKept("$wifi")) {
    writer_.key("$wifi");
    writer_.boolean(automatic.isOnWiFi);
  }
  if (automatic.carrier && isKept("$carrier")) {
    writer_.key("$carrier");
    writer_.string(*automatic.carrier);
  }
}

bool EventEncoder::writeBase(const PropertyMap& eventProperties) {
  const bool isWhole = std::none_of(eventProperties.begin(), eventProperties.end(),
                                    [&](const auto& entry) { return isInBase(entry.first); });
  if (isWhole) {
    if (!baseJSON_.empty()) writer_.members(baseJSON_);
    return baseCanBeEncoded_;
  }
  for (const BaseMember& member : base_) {
    if (eventProperties.find(member.key) != nullptr) continue;
    if (!member.canBeEncoded) return false;
    writer_.members(member.json);
  }
  return true;
}

bool EventEncoder::writeEventProperties(const PropertyMap& eventProperties) {
  for (const auto& [key, value] : eventProperties) {
    if (key == kExtraKey) continue;
    writer_.key(key);
    if (!writeJSON(writer_, value)) return false;
  }
  return true;
}

bool EventEncoder::writeExtra(std::uint64_t trackingAuthorizationStatus,
                              const PropertyMap& eventProperties) {
  PropertyMap extra;
  extra.set("att_auth_status", trackingAuthorizationStatus);
  if (!baseExtra_.empty()) extra = extra + baseExtra_;
  if (eventProperties.find(kExtraKey) != nullptr) extra = extra + extraIn(eventProperties);

  writer_.key(kExtraKey);
  writer_.startObject();
  for (const auto& [key, value] : extra) {
    writer_.key(key);
    if (!writeJSON(writer_, value)) return false;
  }
  writer_.endObject();
  return true;
}

}  // namespace veltrano

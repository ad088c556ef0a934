#include "tracker/event_encoder.h"

#include <algorithm>

#include "properties/json_encoding.h"

namespace veltrano {
namespace {

constexpr std::string_view kTimeKey = "time";
constexpr std::string_view kWiFiKey = "$wifi";
constexpr std::string_view kCarrierKey = "$carrier";
constexpr std::string_view kExtraKey = "extra_json";
constexpr std::string_view kStatusKey = "att_auth_status";

// Equal keys have equal ones, different keys seldom.
std::uint8_t fingerprint(std::string_view key) {
  if (key.empty()) return 0;
  return static_cast<std::uint8_t>(key.size() * 16 + key.front() * 3 + key.back());
}

// The map of properties under "extra_json"; empty when there is none.
PropertyMap extraIn(const PropertyMap& properties) {
  const auto* value = properties.find(kExtraKey);
  return value != nullptr ? asPropertyMap(*value).value_or(PropertyMap()) : PropertyMap();
}

}  // namespace

void EventEncoder::setBase(const PropertyMap& defaultProperties,
                           const PropertyMap& superProperties) {
  const PropertyMap base = defaultProperties + superProperties;
  base_.clear();
  baseJSON_.clear();
  baseCanBeEncoded_ = true;
  baseHasTime_ = base.find(kTimeKey) != nullptr;
  baseHasWiFi_ = base.find(kWiFiKey) != nullptr;
  baseHasCarrier_ = base.find(kCarrierKey) != nullptr;
  baseExtra_ = extraIn(superProperties);
  ownFingerprints_.reset();
  for (const auto key : {kTimeKey, kWiFiKey, kCarrierKey, kExtraKey})
    ownFingerprints_.set(fingerprint(key));
  for (const auto& [key, value] : base) {
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
    ownFingerprints_.set(fingerprint(key));
  }
}

EventRecord EventEncoder::encode(std::string_view eventName, const AutomaticProperties& automatic,
                                 const PropertyMap& eventProperties) {
  static const PropertyMap& none = *new PropertyMap;
  const PropertyMap& replacing = replacesAny(eventProperties) ? eventProperties : none;
  writer_.clear();
  writer_.startObject();
  writer_.key("event");
  writer_.string(eventName);
  writer_.key("properties");
  writer_.startObject();
  writeAutomatic(automatic, replacing);
  if (!writeBase(replacing) || !writeEventProperties(eventProperties) ||
      !writeExtra(automatic.trackingAuthorizationStatus, replacing))
    return {};
  writer_.endObject();
  writer_.endObject();
  return {std::string(writer_.text())};
}

bool EventEncoder::isOwn(std::string_view key) const {
  if (!ownFingerprints_[fingerprint(key)]) return false;  // which spares most of what follows
  if (key == kTimeKey || key == kWiFiKey || key == kCarrierKey || key == kExtraKey) return true;
  const auto place =
      std::lower_bound(base_.begin(), base_.end(), key,
                       [](const BaseMember& l, std::string_view r) { return l.key < r; });
  return place != base_.end() && place->key == key;
}

bool EventEncoder::replacesAny(const PropertyMap& eventProperties) const {
  return std::any_of(eventProperties.begin(), eventProperties.end(),
                     [&](const auto& entry) { return isOwn(entry.first); });
}

void EventEncoder::writeAutomatic(const AutomaticProperties& automatic,
                                  const PropertyMap& replacing) {
  const auto isReplaced = [&](std::string_view key) { return replacing.find(key) != nullptr; };
  if (!baseHasTime_ && !isReplaced(kTimeKey)) {
    writer_.key(kTimeKey);
    writer_.integer(automatic.timeInMilliseconds);
  }
  if (!baseHasWiFi_ && !isReplaced(kWiFiKey)) {
    writer_.key(kWiFiKey);
    writer_.boolean(automatic.isOnWiFi);
  }
  if (automatic.carrier && !baseHasCarrier_ && !isReplaced(kCarrierKey)) {
    writer_.key(kCarrierKey);
    writer_.string(*automatic.carrier);
  }
}

bool EventEncoder::writeBase(const PropertyMap& replacing) {
  if (replacing.empty()) {
    if (!baseJSON_.empty()) writer_.members(baseJSON_);
    return baseCanBeEncoded_;
  }
  for (const BaseMember& member : base_) {
    if (replacing.find(member.key) != nullptr) continue;
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
                              const PropertyMap& replacing) {
  writer_.key(kExtraKey);
  writer_.startObject();
  if (baseExtra_.empty() && replacing.find(kExtraKey) == nullptr) {
    writer_.key(kStatusKey);
    writer_.unsignedInteger(trackingAuthorizationStatus);
  } else {
    PropertyMap status;
    status.set(kStatusKey, trackingAuthorizationStatus);
    for (const auto& [key, value] : status + baseExtra_ + extraIn(replacing)) {
      writer_.key(key);
      if (!writeJSON(writer_, value)) return false;
    }
  }
  writer_.endObject();
  return true;
}

}  // namespace veltrano

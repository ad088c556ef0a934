#pragma once

#include <bitset>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "encoding/json_writer.h"
#include "properties/property_map.h"
#include "upload/event_record.h"

namespace veltrano {

/// What is known by itself about the moment at which an event was tracked.
struct AutomaticProperties {
  std::int64_t timeInMilliseconds = 0;
  bool isOnWiFi = false;
  std::optional<std::string> carrier;
  std::uint64_t trackingAuthorizationStatus = 0;
};

/// Layers the properties of events and encodes them. Default and super properties are the same for
/// one event after the other, so they are encoded when they change, not for every event.
/// Used on the work queue only.
class EventEncoder {
 public:
  /// `defaultProperties` and `superProperties` hold from now on for the events encoded. Of equal
  /// keys a super property wins; the maps under "extra_json" are merged.
  void setBase(const PropertyMap& defaultProperties, const PropertyMap& superProperties);

  /// The record of one event. Automatic properties give way to the base, and that gives way to
  /// `eventProperties`; the maps under "extra_json" are merged key by key, later ones winning, and
  /// what is no map there counts for nothing.
  EventRecord encode(std::string_view eventName, const AutomaticProperties& automatic,
                     const PropertyMap& eventProperties);

 private:
  struct BaseMember {
    std::string key;
    std::string json;  // `"key":value`
    bool canBeEncoded;
  };

  // Whether an event has the property by itself.
  bool isOwn(std::string_view key) const;

  // Few events replace a property that they would have by themselves. `replacing` is the event's
  // properties if they do, and else empty.
  bool replacesAny(const PropertyMap& eventProperties) const;
  void writeAutomatic(const AutomaticProperties& automatic, const PropertyMap& replacing);
  [[nodiscard]] bool writeBase(const PropertyMap& replacing);
  [[nodiscard]] bool writeEventProperties(const PropertyMap& eventProperties);
  [[nodiscard]] bool writeExtra(std::uint64_t trackingAuthorizationStatus,
                                const PropertyMap& replacing);

  JSONWriter writer_;
  std::vector<BaseMember> base_;  // sorted by key; without "extra_json"
  bool baseHasTime_ = false;
  bool baseHasWiFi_ = false;
  bool baseHasCarrier_ = false;
  std::string baseJSON_;  // all members of the base, for events that replace none
  bool baseCanBeEncoded_ = true;
  std::bitset<256> ownFingerprints_;  // of the keys that an event has by itself
  PropertyMap baseExtra_;             // what the super properties add to "extra_json"
};

}  // namespace veltrano

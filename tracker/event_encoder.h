#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "encoding/json_writer.h"
#include "properties/flat_copier.h"
#include "properties/property_map.h"
#include "upload/event_record.h"

namespace veltrano::internal {

/// What is known by itself about the moment at which an event was tracked.
struct AutomaticProperties {
  std::int64_t timeInMilliseconds = 0;
  std::uint64_t trackingAuthorizationStatus = 0;
  bool isOnWiFi = false;
};

/// Layers the properties of events and encodes them. Default and super properties are the same for
/// one event after the other, so they are encoded when they change, not for every event.
/// Used on the work queue only.
class EventEncoder {
 public:
  /// `defaultProperties` and `superProperties` hold from now on for the events encoded. Of equal
  /// keys a super property wins; the maps under "extra_json" are merged.
  void setBase(const PropertyMap& defaultProperties, const PropertyMap& superProperties);

  /// The record of one event. `carrier` and `given`, the host's properties, may be absent.
  /// Automatic properties give way to the base, and that gives way to what is given; the maps under
  /// "extra_json" are merged key by key, later ones winning, and what is no map there counts for
  /// nothing.
  EventRecord encode(std::string_view eventName, const AutomaticProperties& automatic,
                     FlatView carrier, FlatView given);

 private:
  // A property that an event has by itself: one of the base, or an automatic one.
  struct OwnProperty {
    std::string key;
    std::string json;  // `"key":value`; empty for an automatic one that the base leaves alone
    bool canBeEncoded = true;
    bool isReplaced = false;  // by one that the event was given
  };

  void markReplaced();
  void writeAutomatic(const AutomaticProperties& automatic, FlatView carrier);
  [[nodiscard]] bool writeBase();
  [[nodiscard]] bool writeGiven();
  [[nodiscard]] bool writeExtra(std::uint64_t trackingAuthorizationStatus);
  [[nodiscard]] bool writeValue(FlatView value, bool converts);

  JSONWriter writer_;
  FlatCopier copier_;
  std::vector<FlatEntry> given_;  // the properties of one event
  std::vector<OwnProperty> own_;  // sorted by key; "extra_json" among them, but never written
  const OwnProperty* time_ = nullptr;
  const OwnProperty* wifi_ = nullptr;
  const OwnProperty* carrier_ = nullptr;
  std::string baseJSON_;  // all members of the base, for events that replace none
  bool baseCanBeEncoded_ = true;
  bool replacesAny_ = false;  // whether any of own_ is marked as replaced
  PropertyMap baseExtra_;     // what the super properties add to "extra_json"
};

}  // namespace veltrano::internal

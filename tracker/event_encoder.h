#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "encoding/json_writer.h"
#include "properties/flat_copier.h"
#include "properties/property_map.h"
#include "upload/corvane_endpoint_request.h"

namespace veltrano::internal {

/// The properties that the library adds itself, from the moment of the call.
struct AutomaticProperties {
  std::int64_t timeInMilliseconds = 0;
  std::uint64_t trackingAuthorizationStatus = 0;
  bool isOnWiFi = false;
};

/// Merges the layers of an event's properties and encodes them. Default and super properties rarely
/// change, so they are encoded only then. Used on the work queue.
class EventEncoder {
 public:
  /// Leaves out properties called as one of `withheld`, at any depth. `withheld` is sorted and must
  /// outlive the encoder.
  explicit EventEncoder(const std::vector<std::string>& withheld) : copier_(&withheld) {}

  /// Sets the base of the events encoded from now on. On equal keys a super property wins.
  void setBase(const PropertyMap& defaultProperties, const PropertyMap& superProperties);

  /// Encodes one event. `carrier` and `given`, the host's properties, may be absent. Given
  /// properties override the base, which overrides automatic ones. Maps under "extra_json"
  /// are merged key by key in this order; anything else under that key is ignored.
  EventRecord encode(std::string_view eventName, const AutomaticProperties& automatic,
                     FlatView carrier, FlatView given);

 private:
  // A base or automatic property.
  struct OwnProperty {
    std::string key;
    std::string json;  // `"key":value`; empty for an automatic one that is not in the base
    bool canBeEncoded = true;
    bool isReplaced = false;  // by a given one
  };

  void markReplaced();
  void writeAutomatic(const AutomaticProperties& automatic, FlatView carrier);
  [[nodiscard]] bool writeBase();
  [[nodiscard]] bool writeGiven();
  [[nodiscard]] bool writeExtra(std::uint64_t trackingAuthorizationStatus);
  [[nodiscard]] bool writeValue(FlatView value, bool converts);

  JSONWriter writer_;
  FlatCopier copier_;
  std::vector<PropertyView::Entry> given_;  // the properties of one event
  std::vector<OwnProperty> own_;  // sorted by key; contains "extra_json", which has no `json`
  const OwnProperty* time_ = nullptr;
  const OwnProperty* wifi_ = nullptr;
  const OwnProperty* carrier_ = nullptr;
  std::string baseJSON_;  // all members of the base, for events that replace none of them
  bool baseCanBeEncoded_ = true;
  bool replacesAny_ = false;  // whether any of own_ is marked as replaced
  PropertyMap baseExtra_;     // "extra_json" of the super properties
};

}  // namespace veltrano::internal

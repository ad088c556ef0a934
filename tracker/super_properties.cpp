#include "properties/parameter_conversion.h"
#include "tracker/log.h"
#include "tracker/tracker.h"

namespace veltrano {

void Tracker::setSuperProperties(const HostMapView& properties) {
  dispatchQueue_.async([this, given = HostMap(properties)] {
    if (const auto converted = ParameterConversion::convert(given))
      changeSuperProperties(*superProperties_ + *converted);
  });
}

void Tracker::removeSuperProperty(std::string key) {
  dispatchQueue_.async([this, key = std::move(key)] {
    PropertyMap remaining = *superProperties_;
    const auto removed = remaining.remove(key);
    if (removed) changeSuperProperties(std::move(remaining));
    log("Removed superProperty: ", key, " with value: ", removed);
  });
}

void Tracker::changeSuperProperties(PropertyMap changed) {
  auto replacement = std::make_shared<const PropertyMap>(std::move(changed));
  isEncoderCurrent_ = false;
  const std::lock_guard lock(superPropertiesMutex_);
  superProperties_.swap(replacement);
}

std::shared_ptr<const PropertyMap> Tracker::superProperties() const {
  const std::lock_guard lock(superPropertiesMutex_);
  return superProperties_;
}

void Tracker::setRefreshTriggers(const std::optional<std::vector<std::string>>& triggers,
                                 std::function<void()> handler) {
  log("Setting refresh triggers: ", triggers);
  refreshTriggers_.set(triggers, std::move(handler));
}

}  // namespace veltrano

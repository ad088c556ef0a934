#include "tracker/tracker.h"

#include <utility>

#include "encoding/utf8.h"
#include "log/value_rendering.h"
#include "properties/flat.h"
#include "properties/parameter_conversion.h"
#include "tracker/track_call.h"

namespace veltrano::internal {

Tracker::Tracker(const CollectionClient& client,
                 std::function<void(const std::string& uid)> startHeartbeat, CallObserver* observer)
    : client_(client),
      startHeartbeat_(std::move(startHeartbeat)),
      observer_(observer),
      nextSwitch_(makeSwitch()) {
  dispatchQueue_.setDeferrable([this] { return deferrableCalls(); });
}

void Tracker::setCollecting(bool isOn) {
  auto own = isOn ? makeSwitch() : nullptr;
  auto next = isOn ? makeSwitch() : nullptr;
  {
    const Lock lock(switchMutex_);
    if (isCollecting_ == isOn) return;
    ++pendingSwitches_;
    isCollecting_ = isOn;
    dispatchQueue_.async(isOn ? std::move(own) : std::exchange(nextSwitch_, nullptr));
    if (isOn) nextSwitch_ = std::move(next);
  }
  if (!isOn) pendingFlush_.cancel(&isCollecting_);
  if (isOn && isRunning_) startFlushCycle();
  log_("Setting collecting to ", isOn);
}

// The block takes its turn among the calls and drops what was recorded before it.
std::unique_ptr<Block> Tracker::makeSwitch() {
  return makeBlock([this] {
    eventQueue_.clear();
    if (observer_ != nullptr) observer_->dropped();
    accounting_.waitingEventsOptedOut();
    --pendingSwitches_;
  });
}

void Tracker::releaseCallbacks() {
  pendingFlush_.cancel();
  refreshTriggers_.set(std::nullopt, nullptr);
}

void Tracker::setSuperProperties(const HostMapView& properties) {
  HostMap copy(properties);
  WaitingMemory memory(viewOf(copy).bytes().size());
  dispatchQueue_.async([this, given = std::move(copy), memory = std::move(memory)] {
    if (const auto converted = ParameterConversion::convert(given))
      changeSuperProperties(superProperties_.current() + *converted);
  });
}

void Tracker::removeSuperProperty(std::string key) {
  WaitingMemory memory(key.size());
  dispatchQueue_.async([this, key = std::move(key), memory = std::move(memory)] {
    PropertyMap remaining = superProperties_.current();
    const auto removed = remaining.remove(key);
    if (removed) changeSuperProperties(std::move(remaining));
    log_("Removed superProperty: ", key, " with value: ", DebugForm{removed});
  });
}

void Tracker::changeSuperProperties(PropertyMap changed) {
  isEncoderCurrent_ = false;
  superProperties_.replace(std::move(changed));
}

void Tracker::setRefreshTriggers(const std::optional<std::vector<std::string>>& triggers,
                                 HostFunction<> handler) {
  const auto list = triggers ? std::optional(*HostValue(*triggers).member()) : std::nullopt;
  log_("Setting refresh triggers: ", DebugForm{list});
  refreshTriggers_.set(triggers, std::move(handler));
}

void Tracker::setUserId(const std::string& id) {
  if (id.empty()) return;
  log_("Setting userid to ", id);
  setSuperProperties({{"uid", id}});
  startHeartbeat_(id);
}

void Tracker::setAppId(const std::string& id) {
  log_("Setting app id to ", id);
  setSuperProperties({{"app_id", id}});
}

void Tracker::setIdfa() {
  const std::string identifier =
      wellFormedUTF8(platform_.identifierManager->advertisingIdentifier());
  log_("Setting idfa: ", identifier);
  setSuperProperties({{"$ios_ifa", identifier}});
}

void Tracker::setLibVersion(const std::string& version) {
  log_("Setting ana lib version to ", version);
  setSuperProperties({{"lib_version", version}});
}

void Tracker::setPublisherUid(const std::optional<std::string>& uid) {
  if (!uid || uid->empty()) return removeSuperProperty("pub_uid");
  log_("Setting pub uid to ", *uid);
  setSuperProperties({{"pub_uid", *uid}});
}

}  // namespace veltrano::internal

#include "properties/default_properties.h"
#include "tracker/log.h"
#include "tracker/track_call.h"
#include "tracker/tracker.h"

namespace veltrano {
namespace {

// Rounded to the nearest millisecond, halves away from zero.
std::int64_t millisecondsSinceEpoch(WallTime time) {
  const std::int64_t microseconds = time.sinceEpoch.count();
  return (microseconds + (microseconds < 0 ? -500 : 500)) / 1000;
}

}  // namespace

void Tracker::track(std::string_view eventName, const HostMapView& eventProperties,
                    FlushCompletion completion) {
  refreshTriggers_.callHandlerFor(eventName);
  log("Adding event of ", HostText{eventName}, " to current ",
      eventCount_.load(std::memory_order_relaxed), " events");
  const Platform& here = platform();
  AutomaticProperties automatic;
  automatic.timeInMilliseconds = millisecondsSinceEpoch(here.wallClock.now());
  automatic.isOnWiFi = here.connectivity.isReachableOnWiFi();
  const auto carrier = here.telephony.carrierName();
  automatic.trackingAuthorizationStatus = here.trackingManager.trackingAuthorizationStatus();
  // The device is asked for its properties by the first caller; afterwards they are only shared.
  DefaultProperties::properties();
  dispatchQueue_.async(TrackCall::make(*this, automatic, carrier, eventName, eventProperties,
                                       std::move(completion)));
}

void Tracker::record(std::string_view eventName, const AutomaticProperties& automatic,
                     FlatView carrier, FlatView eventProperties, FlushCompletion completion) {
  log("In dispatch queue code block for adding event to queue");
  if (!isEncoderCurrent_) encoder_.setBase(DefaultProperties::properties(), *superProperties_);
  isEncoderCurrent_ = true;
  eventQueue_.push_back(encoder_.encode(eventName, automatic, carrier, eventProperties));
  eventCount_.store(eventQueue_.size(), std::memory_order_relaxed);
  log("Added event and now have ", eventQueue_.size(), " events");
  trimQueueIfNecessary();
  flushQueueIfNecessary(std::move(completion));
  log("Leaving dispatch queue code block for adding event to queue");
}

}  // namespace veltrano

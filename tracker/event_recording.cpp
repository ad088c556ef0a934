#include <new>
#include <stdexcept>
#include <utility>

#include "log/value_rendering.h"
#include "tracker/track_call.h"
#include "tracker/tracker.h"

namespace veltrano::internal {

void Tracker::track(std::string_view eventName, const HostMapView& eventProperties,
                    FlushCompletion&& completion) {
  try {
    if (!refreshTriggers_.callHandlerFor(eventName)) return;
    log_("Adding event of ", HostText{eventName}, " to current ", eventQueue_.count(), " events");
    AutomaticProperties automatic;
    automatic.timeInMilliseconds = roundedMilliseconds(platform_.wallClock->now().sinceEpoch);
    automatic.isOnWiFi = platform_.connectivity->isReachableOnWiFi();
    const auto carrier = platform_.telephony->carrierName();
    automatic.trackingAuthorizationStatus =
        platform_.trackingManager->trackingAuthorizationStatus();
    // Computes them on the first caller's thread rather than on the work queue.
    defaultProperties_.properties();
    auto call = TrackCall::make(*this, automatic, carrier, eventName, eventProperties,
                                std::move(completion));
    if (call != nullptr)
      dispatchQueue_.async(std::move(call));
    else
      accounting_.callDroppedByBacklog();
  } catch (const std::bad_alloc&) {
    accounting_.eventLostForMemory();
  } catch (const std::length_error&) {
    accounting_.eventLostForMemory();
  }
}

void Tracker::record(std::string_view eventName, const AutomaticProperties& automatic,
                     FlatView carrier, FlatView eventProperties, FlushCompletion completion) {
  try {
    if (!isEncoderCurrent_)
      encoder_.setBase(defaultProperties_.properties(), superProperties_.current());
    isEncoderCurrent_ = true;
    EventRecord event = encoder_.encode(eventName, automatic, carrier, eventProperties);
    if (observer_ != nullptr)
      observer_->recorded({eventName, event.json, eventProperties, superProperties_.current(),
                           defaultProperties_.properties()});
    eventQueue_.append(std::move(event));
    accounting_.eventRecorded();
  } catch (const std::exception&) {
    accounting_.eventLostForMemory();
  }
  // Only now, as the host may end this thread in its log sink.
  log_("In dispatch queue code block for adding event to queue");
  log_("Added event and now have ", eventQueue_.count(), " events");
  trimQueueIfNecessary();
  flushQueueIfNecessary(std::move(completion));
  log_("Leaving dispatch queue code block for adding event to queue");
}

}  // namespace veltrano::internal

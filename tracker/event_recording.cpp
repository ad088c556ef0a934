// What every event runs, from `Veltrano::track` to the queue. Apart from veltrano.cpp, which is
// optimised for size.
#include <new>
#include <stdexcept>
#include <utility>

#include "log/value_rendering.h"
#include "tracker/library.h"
#include "tracker/track_call.h"
#include "tracker/tracker.h"

[[gnu::hot]] Veltrano& Veltrano::shared() {
  static constinit Veltrano instance;
  veltrano::internal::dropExceptions([] { veltrano::internal::Library::current().tracker(); });
  return instance;
}

// Names its arguments only for an observer.
[[gnu::hot]] void Veltrano::track(std::string_view eventName,
                                  const veltrano::HostMapView& eventProperties,
                                  FlushCompletion forceFlushCompletion) {
  veltrano::internal::dropExceptions([&] {
    using veltrano::internal::Library;
    const bool isForced = forceFlushCompletion != nullptr;
    if (auto* const observer = isForced ? Library::current().observer() : nullptr)
      observer->given(eventName, forceFlushCompletion);
    Library::current().tracker().track(eventName, eventProperties, std::move(forceFlushCompletion));
    if (auto* const observer = Library::current().observer()) [[unlikely]]
      observer->called("track", {{"name", eventName},
                                 {"properties", eventProperties.argument()},
                                 {"completion", isForced}});
  });
}

namespace veltrano::internal {

[[gnu::hot]] void Tracker::track(std::string_view eventName, const HostMapView& eventProperties,
                                 FlushCompletion&& completion) {
  try {
    if (!refreshTriggers_.callHandlerFor(eventName)) return;
    if (!isCollecting_.load(std::memory_order_relaxed)) return;
    log_("Adding event of ", HostText{eventName}, " to current ", eventQueue_.count(), " events");
    AutomaticProperties automatic;
    automatic.timeInMilliseconds = roundedMilliseconds(platform_.wallClock->now().sinceEpoch);
    std::optional<std::string> carrier;
    if (const MomentaryFacts* const facts = platform_.momentaryFacts) {
      automatic.isOnWiFi = facts->isReachableOnWiFi;
      automatic.trackingAuthorizationStatus = facts->trackingAuthorizationStatus;
      if (facts->hasCarrierName) carrier = platform_.telephony->carrierName();
    } else {
      automatic.isOnWiFi = platform_.connectivity->isReachableOnWiFi();
      automatic.trackingAuthorizationStatus =
          platform_.trackingManager->trackingAuthorizationStatus();
      carrier = platform_.telephony->carrierName();
    }
    // Computes them on the first caller's thread rather than on the work queue.
    defaultProperties_.properties();
    const bool isAwaited = static_cast<bool>(completion);
    auto call = TrackCall::make(*this, automatic, carrier, eventName, eventProperties,
                                std::move(completion));
    if (call == nullptr)
      accounting_.callDroppedByBacklog();
    else if (isAwaited || log_.isEnabled())
      dispatchQueue_.async(std::move(call));
    else
      dispatchQueue_.asyncDeferred(std::move(call));
  } catch (const std::bad_alloc&) {
    accounting_.eventLostForMemory();
  } catch (const std::length_error&) {
    accounting_.eventLostForMemory();
  }
}

void Tracker::record(std::string_view eventName, const AutomaticProperties& automatic,
                     FlatView carrier, FlatView eventProperties, FlushCompletion completion,
                     bool isLogged) {
  if (!collectsNow()) return accounting_.eventOptedOut();
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
  if (isLogged) log_("In dispatch queue code block for adding event to queue");
  if (isLogged) log_("Added event and now have ", eventQueue_.count(), " events");
  trimQueueIfNecessary();
  flushQueueIfNecessary(std::move(completion));
  if (isLogged) log_("Leaving dispatch queue code block for adding event to queue");
}

// A flush is due when ten events wait. Until then calls may wait unread for the next flush, unless
// there is none, or what they do depends on when they are read.
std::size_t Tracker::deferrableCalls() {
  const std::size_t count = eventQueue_.count();
  if (!isRunning_ || needsFlush_ || count >= kQueueFlushThreshold || !pendingFlush_.due()) return 0;
  return kQueueFlushThreshold - count;
}

}  // namespace veltrano::internal

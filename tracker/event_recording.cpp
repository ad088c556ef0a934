#include "encoding/utf8.h"
#include "properties/parameter_conversion.h"
#include "tracker/tracker.h"

namespace veltrano {
namespace {

// Rounded to the nearest millisecond, halves away from zero.
std::int64_t millisecondsSinceEpoch(WallTime time) {
  const std::int64_t microseconds = time.sinceEpoch.count();
  return (microseconds + (microseconds < 0 ? -500 : 500)) / 1000;
}

AutomaticProperties takeAutomaticProperties(const Platform& here) {
  auto carrier = here.telephony->carrierName();
  if (carrier) carrier = wellFormedUTF8(*std::move(carrier));
  return {
      .timeInMilliseconds = millisecondsSinceEpoch(here.wallClock->now()),
      .isOnWiFi = here.connectivity->isReachableOnWiFi(),
      .carrier = std::move(carrier),
      .trackingAuthorizationStatus = here.trackingManager->trackingAuthorizationStatus(),
  };
}

}  // namespace

void Tracker::track(std::string eventName, HostMap eventProperties, FlushCompletion completion) {
  if (!refreshTriggers_.callHandlerFor(eventName)) return;
  log_("Adding event of ", eventName, " to current ", eventQueue_.count(), " events");
  AutomaticProperties automatic = takeAutomaticProperties(platform_);
  // The device is asked for its properties by the first caller; afterwards they are only shared.
  defaultProperties_.properties();
  dispatchQueue_.async([this, eventName = std::move(eventName), automatic = std::move(automatic),
                        eventProperties = std::move(eventProperties),
                        completion = std::move(completion)]() mutable {
    record(eventName, automatic, std::move(eventProperties), std::move(completion));
  });
}

void Tracker::record(const std::string& eventName, const AutomaticProperties& automatic,
                     HostMap eventProperties, FlushCompletion completion) {
  log_("In dispatch queue code block for adding event to queue");
  if (!isEncoderCurrent_)
    encoder_.setBase(defaultProperties_.properties(), superProperties_.current());
  isEncoderCurrent_ = true;
  eventQueue_.append(encoder_.encode(
      eventName, automatic,
      ParameterConversion::convert(std::move(eventProperties)).value_or(PropertyMap())));
  log_("Added event and now have ", eventQueue_.count(), " events");
  trimQueueIfNecessary();
  flushQueueIfNecessary(std::move(completion));
  log_("Leaving dispatch queue code block for adding event to queue");
}

}  // namespace veltrano

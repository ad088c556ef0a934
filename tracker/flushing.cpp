#include "platform/host_callback.h"
#include "tracker/tracker.h"
#include "upload/corvane_endpoint_request.h"

namespace veltrano::internal {

void Tracker::startFlushCycle() {
  log_("Scheduling the next flush with default interval");
  scheduleFlush(kQueueFlushInterval, nullptr);
}

void Tracker::trimQueueIfNecessary() {
  while (eventQueue_.count() > kQueueCapacity) {
    log_("Current event count: ", eventQueue_.count(), " over capacity, trimming");
    eventQueue_.dropOldest();
    accounting_.waitingEventTrimmed();
  }
}

void Tracker::flushQueueIfNecessary(FlushCompletion completion) {
  if (!isRunning_) return;
  if (eventQueue_.count() < kQueueFlushThreshold && !completion) return;
  log_("Current event count: ", eventQueue_.count(), " reached/over threshold, flushing");
  log_("Forcing a flush right now");
  scheduleFlush(std::chrono::seconds(0), std::move(completion));
}

void Tracker::scheduleFlush(std::chrono::seconds delay, FlushCompletion completion) {
  const bool isForced = delay == delay.zero();
  if (isForced) {
    log_("Scheduling a flush that is forced");
  } else {
    log_("Scheduling a flush with delay of ", delay.count(), " secs");
  }
  log_("Canceling scheduled flush!");
  // An upload that ends just as the application enters the background must not put a periodic
  // flush in the place of the final one.
  pendingFlush_.schedule(delay, std::move(completion), isForced ? nullptr : &isRunning_);
}

void Tracker::runScheduledFlush(std::chrono::seconds delay, const FlushCompletion& completion) {
  if (delay == delay.zero()) {
    log_("In the scheduled flush work item block  that is forced");
  } else {
    log_("In the scheduled flush work item block after delay of ", delay.count(), " secs");
  }
  flushQueue(completion);
}

void Tracker::flushQueue(const FlushCompletion& completion) {
  auto group = std::make_shared<DispatchGroup>();
  group->enter();
  log_("Entered dispatch group");
  auto wasDelivered = std::make_shared<bool>(false);
  CorvaneEndpointRequest(endpoints_, eventQueue_.events(), superProperties_.current())
      .send([this, group, wasDelivered](UploadOutcome outcome) {
        finishFlush(outcome);
        *wasDelivered = endsBatch(outcome);
        group->leave();
        log_("Exiting completion block of Endpoint request");
      });
  log_("Dispatch group waiting");
  dispatchQueue_.wait(group, [this, completion, wasDelivered] {
    if (completion && !callHost(completion, *wasDelivered)) return;
    log_("Dispatch group finished waiting");
  });
}

void Tracker::finishFlush(UploadOutcome outcome) {
  log_("Got the response from endpoint. Clear queue: ", endsBatch(outcome));
  accounting_.uploadEnded(outcome);
  if (endsBatch(outcome)) {
    log_("Clearing the queue");
    eventQueue_.clear();
  }
  if (isRunning_) startFlushCycle();
}

}  // namespace veltrano::internal

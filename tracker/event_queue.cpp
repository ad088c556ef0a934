#include "tracker/host_callback.h"
#include "tracker/log.h"
#include "tracker/tracker.h"
#include "upload/corvane_endpoint_request.h"

namespace veltrano {

void Tracker::startFlushCycle() {
  log("Scheduling the next flush with default interval");
  scheduleFlush(kQueueFlushInterval, nullptr);
}

void Tracker::trimQueueIfNecessary() {
  while (eventQueue_.size() > kQueueCapacity) {
    log("Current event count: ", eventQueue_.size(), " over capacity, trimming");
    eventQueue_.pop_front();
    eventCount_.store(eventQueue_.size(), std::memory_order_relaxed);
  }
}

void Tracker::flushQueueIfNecessary(FlushCompletion completion) {
  if (!isRunning_) return;
  if (eventQueue_.size() < kQueueFlushThreshold && !completion) return;
  log("Current event count: ", eventQueue_.size(), " reached/over threshold, flushing");
  log("Forcing a flush right now");
  scheduleFlush(std::chrono::seconds(0), std::move(completion));
}

void Tracker::scheduleFlush(std::chrono::seconds delay, FlushCompletion completion) {
  const bool isForced = delay == delay.zero();
  if (isForced) {
    log("Scheduling a flush that is forced");
  } else {
    log("Scheduling a flush with delay of ", delay.count(), " secs");
  }
  log("Canceling scheduled flush!");
  auto item =
      std::make_shared<WorkItem>([this, delay, isForced, completion = std::move(completion)] {
        if (isForced) {
          log("In the scheduled flush work item block  that is forced");
        } else {
          log("In the scheduled flush work item block after delay of ", delay.count(), " secs");
        }
        flushQueue(completion);
      });

  // Destroyed after the lock is released: what its completion holds is the host's.
  std::shared_ptr<WorkItem> replaced = item;
  const std::lock_guard lock(flushMutex_);
  // An upload that ends just as the application enters the background must not put a periodic
  // flush in the place of the final one.
  if (!isForced && !isRunning_) return;
  flushWorkItem_.swap(replaced);
  replaced->cancel();
  dispatchQueue_.asyncAfter(delay, std::move(item));
}

void Tracker::flushQueue(const FlushCompletion& completion) {
  auto group = std::make_shared<DispatchGroup>();
  group->enter();
  log("Entered dispatch group");
  auto wasDelivered = std::make_shared<bool>(false);
  CorvaneEndpointRequest(eventQueue_, *superProperties_).send([this, group, wasDelivered](bool ok) {
    finishFlush(ok);
    *wasDelivered = ok;
    group->leave();
    log("Exiting completion block of Endpoint request");
  });
  log("Dispatch group waiting");
  dispatchQueue_.wait(group, [completion, wasDelivered] {
    if (completion) callHost(completion, *wasDelivered);
    log("Dispatch group finished waiting");
  });
}

void Tracker::finishFlush(bool wasDelivered) {
  log("Got the response from endpoint. Clear queue: ", wasDelivered);
  if (wasDelivered) {
    log("Clearing the queue");
    eventQueue_.clear();
    eventCount_.store(0, std::memory_order_relaxed);
  }
  if (isRunning_) startFlushCycle();
}

}  // namespace veltrano

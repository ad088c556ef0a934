#include <exception>
#include <memory>
#include <utility>

#include "platform/host_callback.h"
#include "tracker/tracker.h"
#include "upload/corvane_endpoint_request.h"

namespace veltrano::internal {

// An upload that the work queue waits for. Ends with the outcome passed to `end`, or as failed when
// the last reference to it is dropped.
class Tracker::Upload {
 public:
  explicit Upload(Tracker& tracker) : tracker_(tracker) { tracker_.uploads_.enter(); }
  ~Upload() { end(UploadOutcome::failedForMemory); }
  Upload(const Upload&) = delete;
  Upload& operator=(const Upload&) = delete;

  void end(UploadOutcome outcome) {
    if (std::exchange(hasEnded_, true)) return;
    struct Leave {
      ~Leave() { uploads.leave(); }
      DispatchGroup& uploads;
    };
    const Leave leave{tracker_.uploads_};
    tracker_.finishFlush(outcome);
  }

 private:
  Tracker& tracker_;
  bool hasEnded_ = false;
};

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
  if (isFlushMissing_.load(std::memory_order_relaxed)) {
    isFlushMissing_ = false;
    scheduleFlush(std::chrono::seconds(0), nullptr);
  }
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
  // An upload that ends just as the application enters the background must not replace the final
  // flush with a periodic one.
  try {
    pendingFlush_.schedule(delay, std::move(completion), isForced ? nullptr : &isRunning_);
  } catch (const std::exception&) {
    isFlushMissing_ = true;
  }
}

void Tracker::runScheduledFlush(std::chrono::seconds delay, FlushCompletion completion) {
  if (delay == delay.zero()) {
    log_("In the scheduled flush work item block  that is forced");
  } else {
    log_("In the scheduled flush work item block after delay of ", delay.count(), " secs");
  }
  flushQueue(std::move(completion));
}

// Must not throw: after `uploads_` is entered, the queue has to wait for it.
void Tracker::flushQueue(FlushCompletion completion) {
  flushCompletion_ = std::move(completion);
  wasDelivered_ = false;
  log_("Entered dispatch group");
  upload();
  log_("Dispatch group waiting");
  dispatchQueue_.wait(uploads_, [this] {
    const FlushCompletion waiting = std::exchange(flushCompletion_, nullptr);
    if (waiting && !callHost(waiting, wasDelivered_)) return;
    log_("Dispatch group finished waiting");
  });
}

void Tracker::upload() {
  std::shared_ptr<Upload> upload;
  dropExceptions([&] {
    upload = std::make_shared<Upload>(*this);
    CorvaneEndpointRequest(endpoints_, eventQueue_.events(), superProperties_.current())
        .send([this, upload](UploadOutcome outcome) {
          upload->end(outcome);
          log_("Exiting completion block of Endpoint request");
        });
  });
  if (upload == nullptr) finishFlush(UploadOutcome::failedForMemory);
}

void Tracker::finishFlush(UploadOutcome outcome) {
  log_("Got the response from endpoint. Clear queue: ", endsBatch(outcome));
  accounting_.uploadEnded(outcome);
  if (endsBatch(outcome)) {
    log_("Clearing the queue");
    eventQueue_.clear();
  }
  // An event too large to send must not block the others.
  if (outcome == UploadOutcome::failedForMemory && eventQueue_.count() > 0) {
    eventQueue_.dropLargest();
    accounting_.waitingEventLostForMemory();
  }
  wasDelivered_ = endsBatch(outcome);
  if (isRunning_) startFlushCycle();
}

}  // namespace veltrano::internal

#include <exception>
#include <memory>
#include <utility>

#include "platform/host_callback.h"
#include "tracker/tracker.h"
#include "upload/corvane_endpoint_request.h"

namespace veltrano::internal {

constexpr UploadOutcome kNothingToSend;
constexpr UploadOutcome kFailedForMemory{true, &Statistics::uploadsFailedForMemory};

// An upload that the work queue waits for. Ends with the outcome passed to `end`. If the host ends
// the thread that would have called it, dropping the last reference ends the upload as failed.
class Tracker::Upload {
 public:
  explicit Upload(Tracker& tracker) : tracker_(tracker) { tracker_.uploads_.enter(); }
  ~Upload() {
    if (hasEnded_) return;
    tracker_.endUpload(hasBegun_ ? UploadOutcome{true, &Statistics::uploadsFailedInTransport}
                                 : kNothingToSend);
    tracker_.needsFlush_ = true;
    tracker_.uploads_.leave();
  }
  Upload(const Upload&) = delete;
  Upload& operator=(const Upload&) = delete;

  void begin() {
    hasBegun_ = true;
    tracker_.accounting_.uploadBegan();
  }

  void end(const UploadOutcome& outcome) {
    if (std::exchange(hasEnded_, true)) return;
    const AtScopeEnd leave{[this] { tracker_.uploads_.leave(); }};
    if (outcome.cause != nullptr && !hasBegun_) begin();  // without memory it counts all the same
    tracker_.finishFlush(outcome);
  }

 private:
  Tracker& tracker_;
  bool hasBegun_ = false;
  bool hasEnded_ = false;
};

void Tracker::startFlushCycle(bool isFirst) {
  scheduleFlush(kQueueFlushInterval, nullptr, {"Scheduling the next flush with default interval"},
                isFirst);
}

void Tracker::trimQueueIfNecessary() {
  while (eventQueue_.count() > EventQueue::kCapacity) {
    log_("Current event count: ", eventQueue_.count(), " over capacity, trimming");
    eventQueue_.dropOldest();
    accounting_.waitingEventTrimmed();
  }
}

void Tracker::flushQueueIfNecessary(FlushCompletion completion) {
  if (needsFlush_.load(std::memory_order_relaxed)) scheduleFlush(std::chrono::seconds(0));
  if (!isRunning_) return;
  if (eventQueue_.count() < kQueueFlushThreshold && !completion) return;
  log_("Current event count: ", eventQueue_.count(), " reached/over threshold, flushing");
  scheduleFlush(std::chrono::seconds(0), std::move(completion), {"Forcing a flush right now"});
}

void Tracker::scheduleFlush(std::chrono::seconds delay, FlushCompletion completion,
                            std::initializer_list<const char*> announcements, bool isFirst) {
  if (!isCollecting_) return;
  // The host may end this thread in its log sink: the flush is scheduled all the same.
  const AtScopeEnd schedule{[&] { scheduleSilently(delay, std::move(completion), isFirst); }};
  for (const char* const line : announcements) log_(line);
  if (delay == delay.zero())
    log_("Scheduling a flush that is forced");
  else
    log_("Scheduling a flush with delay of ", delay.count(), " secs");
  log_("Canceling scheduled flush!");
}

// A periodic flush must not replace the final one if an upload ends just as the application enters
// the background. The tracker's first flush must not replace one that another thread has forced.
void Tracker::scheduleSilently(std::chrono::seconds delay, FlushCompletion completion,
                               bool isFirst) noexcept {
  try {
    pendingFlush_.schedule(delay, std::move(completion),
                           delay == delay.zero() ? nullptr : &isRunning_, isFirst);
    needsFlush_ = false;
  } catch (const std::exception&) {
    needsFlush_ = true;
  }
}

// The host may end this thread in its log sink or in the completion. The queue must still wait for
// an upload in progress; the next event then schedules the next flush.
void Tracker::runScheduledFlush(std::chrono::seconds delay, FlushCompletion completion) {
  if (!collectsNow()) return;
  try {
    if (delay == delay.zero())
      log_("In the scheduled flush work item block  that is forced");
    else
      log_("In the scheduled flush work item block after delay of ", delay.count(), " secs");
    flushQueue(std::move(completion));
  } catch (...) {
    dispatchQueue_.wait(uploads_, [] {});
    flushCompletion_ = nullptr;
    needsFlush_ = true;
    throw;
  }
}

void Tracker::flushQueue(FlushCompletion completion) {
  flushCompletion_ = std::move(completion);
  outcome_ = kNothingToSend;
  log_("Entered dispatch group");
  upload();
  log_("Dispatch group waiting");
  dispatchQueue_.wait(uploads_, [this] {
    const FlushCompletion waiting = std::exchange(flushCompletion_, nullptr);
    if (waiting && !waiting.call(!outcome_.keepsEvents)) return;
    log_("Dispatch group finished waiting");
  });
}

void Tracker::upload() {
  // In the background, only the flush on entering it runs.
  const Urgency urgency = !isRunning_        ? Urgency::enteringBackground
                          : flushCompletion_ ? Urgency::completion
                                             : Urgency::ordinary;
  std::shared_ptr<Upload> upload;
  try {
    upload = std::make_shared<Upload>(*this);
    CorvaneEndpointRequest(client_, eventQueue_.events(), superProperties_.current())
        .send(
            urgency, [&] { upload->begin(); },
            [this, upload](const UploadOutcome& outcome) {
              upload->end(outcome);
              log_("Exiting completion block of Endpoint request");
            });
  } catch (const std::exception&) {
    if (upload != nullptr) return upload->end(kFailedForMemory);
    accounting_.uploadBegan();
    finishFlush(kFailedForMemory);
  }
}

// The host may end this thread in its log sink. By then only the next flush is missing, and the
// next event schedules it.
void Tracker::finishFlush(const UploadOutcome& outcome) {
  endUpload(outcome);
  try {
    if (outcome.status) log_("Got response: ", *outcome.status);
    log_("Got the response from endpoint. Clear queue: ", !outcome.keepsEvents);
    if (!outcome.keepsEvents) log_("Clearing the queue");
    if (isRunning_) startFlushCycle();
  } catch (...) {
    needsFlush_ = true;
    throw;
  }
}

// Neither throws nor calls the host.
void Tracker::endUpload(const UploadOutcome& outcome) {
  accounting_.flushEnded(outcome);
  if (!outcome.keepsEvents) eventQueue_.clear();
  // An event too large to send must not block the others.
  if (outcome.cause == kFailedForMemory.cause && eventQueue_.count() > 0) {
    eventQueue_.dropLargest();
    accounting_.waitingEventLostForMemory();
  }
  outcome_ = outcome;
}

}  // namespace veltrano::internal

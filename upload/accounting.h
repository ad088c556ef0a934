#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "encoding/time.h"
#include "platform/endpoint_path.h"
#include "platform/mutex.h"
#include "veltrano/statistics.h"

namespace veltrano::internal {

/// How an upload ended.
struct UploadOutcome {
  using Count = std::uint64_t Statistics::*;

  bool keepsEvents = true;  // for the next upload
  Count cause = nullptr;    // counts the uploads that end so; null if there was nothing to send
  Count batchAs = nullptr;  // counts the events that are not kept
  std::optional<int> status = {};  // of the response, if there is one
};

/// How the last request to a path of the collection host ended, after all its retries.
struct LastRequest {
  std::optional<int> status;
  std::string reason = {};  // why there is no complete response
  Duration endedAt{0};      // by the clock's `elapsed`
};
using LastRequests = std::array<std::optional<LastRequest>, kEndpointPathCount>;

/// Counts events, uploads and heartbeats. Thread-safe.
class Accounting {
 public:
  Statistics statistics() const {
    const Lock lock(mutex_);
    return statistics_;
  }

  void eventRecorded() {
    const Lock lock(mutex_);
    ++statistics_.recorded;
    ++waiting();
  }
  void callDroppedByBacklog() { add(&Statistics::recorded, &Statistics::droppedByBacklog); }
  void eventLostForMemory() { add(&Statistics::recorded, &Statistics::droppedForMemory); }

  void waitingEventTrimmed() { dropWaiting(&Statistics::droppedByTrimming); }
  void waitingEventLostForMemory() { dropWaiting(&Statistics::droppedForMemory); }

  /// The host has switched collecting off: what waits is dropped, and an event on its way to it.
  void waitingEventsOptedOut() {
    const Lock lock(mutex_);
    statistics_.droppedByOptOut += std::exchange(statistics_.waiting, 0);
  }
  void eventOptedOut() { add(&Statistics::recorded, &Statistics::droppedByOptOut); }

  /// An event that the shutdown keeps from being recorded.
  void eventLostInShutDown() { add(&Statistics::recorded, &Statistics::droppedByShutDown); }

  /// The library is shut down: what waits, now or later, is dropped.
  void end() {
    const Lock lock(mutex_);
    hasEnded_ = true;
    statistics_.droppedByShutDown += std::exchange(statistics_.waiting, 0);
  }

  /// All waiting events are in flight until `flushEnded`.
  void uploadBegan() {
    const Lock lock(mutex_);
    ++statistics_.uploadsAttempted;
    statistics_.inFlight = std::exchange(statistics_.waiting, 0);
  }

  void flushEnded(const UploadOutcome& outcome) {
    const Lock lock(mutex_);
    Statistics& now = statistics_;
    if (outcome.cause != nullptr) ++(now.*outcome.cause);
    // What cannot be encoded has not been in flight.
    const std::uint64_t batch = std::exchange(now.inFlight, 0) + std::exchange(now.waiting, 0);
    (outcome.keepsEvents ? waiting() : now.*outcome.batchAs) += batch;
  }

  void requestEnded(EndpointPath path, LastRequest request) {
    std::optional<LastRequest> ended = std::move(request);  // destroyed without the lock
    const Lock lock(mutex_);
    lastRequests_[indexOf(path)].swap(ended);
  }

  /// For each path; none before the first request.
  LastRequests lastRequests() const {
    const Lock lock(mutex_);
    return lastRequests_;
  }

  void heartbeatSent() { add(&Statistics::heartbeatsSent); }
  void heartbeatFailed() { add(&Statistics::heartbeatsFailed); }
  void heartbeatPutOff() { add(&Statistics::heartbeatsPutOff); }

 private:
  template <class... Counts>
  void add(Counts... counts) {
    const Lock lock(mutex_);
    (++(statistics_.*counts), ...);
  }

  std::uint64_t& waiting() REQUIRES(mutex_) {
    return hasEnded_ ? statistics_.droppedByShutDown : statistics_.waiting;
  }

  void dropWaiting(std::uint64_t Statistics::*reason) {
    const Lock lock(mutex_);
    --waiting();
    ++(statistics_.*reason);
  }

  mutable Mutex mutex_;
  bool hasEnded_ GUARDED_BY(mutex_) = false;
  Statistics statistics_ GUARDED_BY(mutex_);
  LastRequests lastRequests_ GUARDED_BY(mutex_);
};

}  // namespace veltrano::internal

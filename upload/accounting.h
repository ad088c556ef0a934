#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "encoding/time.h"
#include "veltrano/statistics.h"

namespace veltrano::internal {

/// How an upload ended.
enum class UploadOutcome {
  nothingToSend,
  notEncodable,
  delivered,
  refused,  // with status 400
  failedByStatus,
  failedInTransport,
  failedForMemory,
};

/// How the last request to a path of the collection host ended, after all its retries.
struct LastRequest {
  std::string_view path;  // a literal; empty before the first request
  std::optional<int> status = {};
  std::string reason = {};  // why there is no complete response
  Duration endedAt{0};      // by the clock's `elapsed`
};

/// Counts events, uploads and heartbeats. Thread-safe.
class Accounting {
 public:
  Statistics statistics() const {
    const std::lock_guard lock(mutex_);
    return statistics_;
  }

  void eventRecorded() {
    const std::lock_guard lock(mutex_);
    ++statistics_.recorded;
    ++waiting();
  }
  void eventLostForMemory() { add(&Statistics::recorded, &Statistics::droppedForMemory); }

  void waitingEventTrimmed() { dropWaiting(&Statistics::droppedByTrimming); }
  void waitingEventLostForMemory() { dropWaiting(&Statistics::droppedForMemory); }

  /// An event that the shutdown keeps from being recorded.
  void eventLostInShutDown() { add(&Statistics::recorded, &Statistics::droppedByShutDown); }

  /// The library is shut down: what waits, now or later, is dropped.
  void end() {
    const std::lock_guard lock(mutex_);
    hasEnded_ = true;
    statistics_.droppedByShutDown += std::exchange(statistics_.waiting, 0);
  }

  /// All waiting events are in flight until `uploadEnded`.
  void uploadBegan() {
    const std::lock_guard lock(mutex_);
    ++statistics_.uploadsAttempted;
    statistics_.inFlight = std::exchange(statistics_.waiting, 0);
  }

  void uploadEnded(UploadOutcome outcome) {
    const std::lock_guard lock(mutex_);
    Statistics& now = statistics_;
    const std::uint64_t batch = std::exchange(now.inFlight, 0);
    switch (outcome) {
      case UploadOutcome::nothingToSend:
        return;
      case UploadOutcome::notEncodable:
        now.droppedAsNotEncodable += std::exchange(now.waiting, 0);
        return;
      case UploadOutcome::delivered:
        now.delivered += batch;
        ++now.uploadsSucceeded;
        return;
      case UploadOutcome::refused:
        now.droppedAsRefused += batch;
        ++now.uploadsFailedByStatus;
        return;
      case UploadOutcome::failedByStatus:
        ++now.uploadsFailedByStatus;
        break;
      case UploadOutcome::failedInTransport:
        ++now.uploadsFailedInTransport;
        break;
      case UploadOutcome::failedForMemory:
        if (batch == 0) ++now.uploadsAttempted;  // it failed before it began
        ++now.uploadsFailedForMemory;
        break;
    }
    waiting() += batch;
  }

  void requestEnded(LastRequest request) {
    const std::lock_guard lock(mutex_);
    std::swap(lastRequests_[request.path == "/track" ? 0 : 1], request);
  }

  /// The last upload and the last heartbeat.
  std::array<LastRequest, 2> lastRequests() const {
    const std::lock_guard lock(mutex_);
    return lastRequests_;
  }

  void heartbeatSent() { add(&Statistics::heartbeatsSent); }
  void heartbeatFailed() { add(&Statistics::heartbeatsFailed); }

 private:
  template <class... Counts>
  void add(Counts... counts) {
    const std::lock_guard lock(mutex_);
    (++(statistics_.*counts), ...);
  }

  // Called with mutex_ held.
  std::uint64_t& waiting() {
    return hasEnded_ ? statistics_.droppedByShutDown : statistics_.waiting;
  }

  void dropWaiting(std::uint64_t Statistics::*reason) {
    const std::lock_guard lock(mutex_);
    --waiting();
    ++(statistics_.*reason);
  }

  mutable std::mutex mutex_;
  bool hasEnded_ = false;                    // guarded by mutex_
  Statistics statistics_;                    // guarded by mutex_
  std::array<LastRequest, 2> lastRequests_;  // guarded by mutex_
};

}  // namespace veltrano::internal

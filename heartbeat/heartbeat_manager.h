#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "heartbeat/heartbeat_repository.h"
#include "heartbeat/session.h"
#include "platform/mutex.h"
#include "platform/platform.h"

namespace veltrano::internal {

/// Schedules heartbeats: one shortly after the application becomes active, then one per interval
/// while it stays active. Thread-safe. Heartbeats run on the run loop of the thread that set the
/// first timer: the caller of `initialize` or, after an activation, the main thread.
class HeartbeatManager {
 public:
  /// `fireNowDelay` is the delay of the first heartbeat. `recordFailure` is called, on any thread,
  /// for each heartbeat that was not accepted. None is sent while `isCollecting` is false.
  HeartbeatManager(const Platform& platform, std::unique_ptr<HeartbeatRepository> repository,
                   Duration fireNowDelay, std::function<void()> recordFailure,
                   const std::atomic<bool>& isCollecting);

  /// Starts the heartbeat of `uid` with a timer on the calling thread's run loop. Later calls are
  /// no-ops.
  void initialize(const std::string& uid);

  /// Call when `isCollecting` becomes true: continues as after an activation, on the main thread.
  void resume();

 private:
  void applicationDidEnterBackground();
  void applicationDidBecomeActive();
  void sendHeartbeat();
  void setTimer(Duration delay) REQUIRES(mutex_);
  void freeTimerIfNeeded() REQUIRES(mutex_);

  const Platform& platform_;
  const std::unique_ptr<HeartbeatRepository> repository_;
  const Duration fireNowDelay_;
  const std::function<void()> recordFailure_;
  const std::atomic<bool>& isCollecting_;

  Mutex mutex_;  // because `initialize` may run on another thread than the rest
  bool initialized_ GUARDED_BY(mutex_) = false;
  std::shared_ptr<Timer> timer_ GUARDED_BY(mutex_);  // null when none is scheduled
  std::string uid_ GUARDED_BY(mutex_);
  Session session_ GUARDED_BY(mutex_);
};

}  // namespace veltrano::internal

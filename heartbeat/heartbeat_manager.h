#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "heartbeat/heartbeat_repository.h"
#include "heartbeat/session.h"
#include "platform/platform.h"

namespace veltrano::internal {

/// Decides when heartbeats are sent: one shortly after the application becomes active, then one
/// every interval for as long as it stays active. Runs on the main thread, but for the first call
/// of `initialize`, which may come from any thread.
class HeartbeatManager {
 public:
  /// `fireNowDelay` is what a first heartbeat waits for. `recordFailure` is called, on any thread,
  /// after each heartbeat that was not accepted.
  HeartbeatManager(const Platform& platform, std::unique_ptr<HeartbeatRepository> repository,
                   Duration fireNowDelay, std::function<void()> recordFailure);
  HeartbeatManager(const HeartbeatManager&) = delete;
  HeartbeatManager& operator=(const HeartbeatManager&) = delete;

  /// Starts the heartbeat of `uid`, with its timer on the calling thread's run loop. Only the first
  /// call counts.
  void initialize(const std::string& uid);

 private:
  void applicationDidEnterBackground();
  void applicationDidBecomeActive();
  void sendHeartbeat();
  void setTimer(Duration delay);
  void freeTimerIfNeeded();

  const Platform& platform_;
  const std::unique_ptr<HeartbeatRepository> repository_;
  const Duration fireNowDelay_;
  const std::function<void()> recordFailure_;

  // Guards what follows: the thread that initializes need not be the main one.
  std::mutex mutex_;
  bool initialized_ = false;
  std::shared_ptr<Timer> timer_;  // null when none is pending
  std::string uid_;
  Session session_;
};

}  // namespace veltrano::internal

#pragma once

#include <chrono>
#include <condition_variable>
#include <optional>
#include <thread>

#include "platform/mutex.h"
#include "platform/posix/posix_services.h"
#include "upload/rules/final_flush.h"

namespace veltrano::internal {

/// Shuts the process's library down, once. Thread-safe.
class Shutdown {
 public:
  using Clock = std::chrono::steady_clock;

  /// `services` are those of the library.
  explicit Shutdown(PosixServices& services) : services_(services) {}

  /// As `PosixPlatform::shutDown`.
  bool run(Clock::time_point deadline);

 private:
  enum class Phase { unstarted, flushing, stopping, ended };

  bool hasPassed() const REQUIRES(mutex_) { return Clock::now() >= deadline_; }
  void flush();
  std::optional<FlushResult> flushOnce();
  bool pause(Duration time);
  void noteFlushAfterRounds(int rounds);
  bool stop();

  PosixServices& services_;
  Mutex mutex_;
  std::condition_variable changed_;
  Phase phase_ GUARDED_BY(mutex_) = Phase::unstarted;
  std::thread::id thread_ GUARDED_BY(mutex_);  // that shuts down
  // Later calls may bring it forward.
  Clock::time_point deadline_ GUARDED_BY(mutex_) = Clock::time_point::max();
  std::optional<FlushResult> flushed_ GUARDED_BY(mutex_);
  bool wasComplete_ GUARDED_BY(mutex_) = false;
};

}  // namespace veltrano::internal

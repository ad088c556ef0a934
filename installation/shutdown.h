#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/posix/posix_services.h"

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
  bool flushUntil(Clock::time_point deadline);
  void keepForRounds(int rounds, std::shared_ptr<void> object);
  bool stop(Clock::time_point deadline);

  PosixServices& services_;
  std::mutex mutex_;
  std::condition_variable ended_;
  bool hasBegun_ = false;     // guarded by mutex_
  std::thread::id thread_;    // guarded by mutex_
  bool hasEnded_ = false;     // guarded by mutex_
  bool wasComplete_ = false;  // written once, by thread_, before hasEnded_ is set
};

}  // namespace veltrano::internal

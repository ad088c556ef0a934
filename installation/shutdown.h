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
  enum class Stage { unstarted, flushing, stopping, ended };

  bool hasPassed() const { return Clock::now() >= deadline_; }
  void flush();
  bool flushOnce();
  bool pause(Duration time);
  void keepForRounds(int rounds, std::shared_ptr<void> object);
  bool stop();

  PosixServices& services_;
  std::mutex mutex_;  // guards everything below
  std::condition_variable changed_;
  Stage stage_ = Stage::unstarted;
  std::thread::id thread_;                                 // that shuts down
  Clock::time_point deadline_ = Clock::time_point::max();  // later calls may bring it forward
  bool isFlushed_ = false;
  bool wasComplete_ = false;
};

}  // namespace veltrano::internal

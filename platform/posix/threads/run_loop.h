#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "platform/mutex.h"
#include "platform/posix/system/system.h"
#include "platform/timer.h"
#include "veltrano/run_loop.h"

namespace veltrano::internal {

/// One thread's run loop: runs posted functions in order, then timers by due time. Holds no lock
/// while running or destroying them. A no-op in a forked child.
class PosixRunLoop final : public RunLoop, public std::enable_shared_from_this<PosixRunLoop> {
 public:
  /// The calling thread's loop. The thread drops its reference on exit; the last reference destroys
  /// pending work. Throws when memory or the process's keys run out.
  static std::shared_ptr<PosixRunLoop> ofThisThread();

  PosixRunLoop() = default;

  void run() override { runUntilOptional(std::nullopt); }
  bool runUntil(std::chrono::steady_clock::time_point deadline) override {
    return runUntilOptional(deadline);
  }
  void stop() override;
  void perform(std::function<void()> function) override;
  int fileDescriptor() override;
  void runDue() override {
    if (isOwnThread()) runPass(false);
  }

  std::shared_ptr<Timer> schedule(Duration delay, Duration tolerance, std::function<void()> action);

  bool isOwnThread() const { return thread_ == std::this_thread::get_id(); }

 private:
  class LoopTimer;
  using Clock = std::chrono::steady_clock;
  using Key = std::pair<Clock::time_point, std::uint64_t>;  // due time, order of addition
  struct Pending {
    Clock::time_point latest;
    std::function<void()> action;
  };
  using Schedule = std::map<Key, Pending>;

  /// The due time of functions, earlier than any timer's.
  static constexpr Clock::time_point kAtOnce{};

  bool runPass(bool endsWhenStopped);
  bool runUntilOptional(std::optional<Clock::time_point> deadline);
  Schedule::node_type takeNext(Clock::time_point now, std::uint64_t end, bool endsWhenStopped);
  bool run(Schedule::node_type next);
  void cancel(std::uint64_t order);
  std::optional<Clock::time_point> wakeTime() const REQUIRES(mutex_);
  void changed() REQUIRES(mutex_);

  const std::thread::id thread_ = std::this_thread::get_id();

  Mutex mutex_;
  std::condition_variable changes_;
  Schedule schedule_ GUARDED_BY(mutex_);  // functions and timers
  std::atomic<std::uint64_t> nextOrder_{0};
  bool stopped_ GUARDED_BY(mutex_) = false;
  WakeUp wakeUp_ GUARDED_BY(mutex_);  // for the host's own loop
};

/// The calling thread's loop; if memory runs out, one that does nothing.
RunLoop& currentSystemRunLoop();

/// Schedules timers on the calling thread's run loop. A delay is at least as long as the tolerance.
/// The main thread is the one that creates it.
class PosixTimers final : public Timers {
 public:
  std::shared_ptr<Timer> schedule(Duration delay, Duration tolerance,
                                  std::function<void()> action) override;
  void performOnMainThread(std::function<void()> function) override;

  RunLoop& mainRunLoop() { return *mainRunLoop_; }

  /// Timers scheduled from now on never fire.
  void stop() { isStopped_ = true; }

 private:
  const std::shared_ptr<PosixRunLoop> mainRunLoop_ = PosixRunLoop::ofThisThread();
  std::atomic<bool> isStopped_{false};
};

}  // namespace veltrano::internal

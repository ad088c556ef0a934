#pragma once

#include <functional>
#include <memory>

#include "encoding/time.h"

namespace veltrano::internal {

/// A one-shot timer that has been scheduled.
class Timer {
 public:
  virtual ~Timer() = default;

  /// Keeps the timer from firing. From any thread; one that fires just then on its own thread is
  /// not waited for.
  virtual void invalidate() {}
};

/// Schedules timers on run loops.
class Timers {
 public:
  virtual ~Timers() = default;

  /// Runs `action` once on the calling thread's run loop when `delay` has passed, at most
  /// `tolerance` later. On a thread whose run loop never runs the timer stays pending.
  virtual std::shared_ptr<Timer> schedule(Duration /*delay*/, Duration /*tolerance*/,
                                          std::function<void()> /*action*/) {
    return std::make_shared<Timer>();
  }
};

}  // namespace veltrano::internal

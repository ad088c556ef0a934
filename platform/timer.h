#pragma once

#include <functional>
#include <memory>

#include "encoding/time.h"

namespace veltrano::internal {

/// A scheduled one-shot timer.
class Timer {
 public:
  virtual ~Timer() = default;

  /// Cancels the timer. Thread-safe; does not wait for an action that is already running.
  virtual void invalidate() {}
};

/// Schedules timers on run loops.
class Timers {
 public:
  virtual ~Timers() = default;

  /// Runs `action` once on the calling thread's run loop, after `delay` and at most `tolerance`
  /// later. An action that throws std::bad_alloc is retried a second later. The timer stays pending
  /// while the thread's run loop does not run.
  virtual std::shared_ptr<Timer> schedule(
      Duration /*delay*/, Duration /*tolerance*/,
      // NOLINTNEXTLINE(performance-unnecessary-value-param): for implementations to keep
      std::function<void()> /*action*/) {
    return std::make_shared<Timer>();
  }

  /// Calls `function` on the main thread: at once if this is it, else when its run loop runs.
  // NOLINTNEXTLINE(performance-unnecessary-value-param): for implementations to keep
  virtual void performOnMainThread(std::function<void()> /*function*/) {}
};

}  // namespace veltrano::internal

// A thread's run loop. Hosts include posix_platform.h.
#pragma once

#include <chrono>
#include <functional>

#include "veltrano/export.h"

namespace veltrano {

/// Runs the library's timers, and functions posted to it, on one thread.
///
/// A host either calls `run` or drives the loop from its own: poll `fileDescriptor()` for input and
/// call `runDue` when there is some. If it does neither, nothing on the loop runs, which is
/// harmless. Exceptions that posted functions throw are dropped.
class VELTRANO_EXPORT RunLoop {
 public:
  /// The calling thread's run loop, valid until the thread ends. That of the main thread is valid
  /// until the process ends once the platform is installed.
  static RunLoop& current();

  /// Runs until `stop`. On the loop's own thread only; elsewhere returns at once.
  virtual void run() = 0;

  /// Runs until `stop` (returns true) or `deadline` (returns false). On the loop's own thread only.
  virtual bool runUntil(std::chrono::steady_clock::time_point deadline) = 0;

  /// Ends the innermost run after the current function or timer. If the loop is not running, the
  /// next run returns at once.
  virtual void stop() = 0;

  /// Posts `function` to the loop's thread. Functions run in the order in which they were posted.
  virtual void perform(std::function<void()> function) = 0;

  /// A descriptor that has input while something is due; always the same one. Do not read or close
  /// it. -1 when the process is out of descriptors.
  virtual int fileDescriptor() = 0;

  /// Runs what is due now, without waiting. On the loop's own thread only.
  virtual void runDue() = 0;

  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;

 protected:
  RunLoop() = default;
  virtual ~RunLoop() = default;
};

}  // namespace veltrano

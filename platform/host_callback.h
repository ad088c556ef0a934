// Calls into the host.
#pragma once

#include <atomic>
#include <exception>
#include <utility>

namespace veltrano::internal {

/// Set by the platform in a forked child before any other code runs there.
inline std::atomic<bool> hasBeenForked{false};

/// True in a child forked from the library's process, where the library's threads do not exist and
/// its locks may be held forever. The facade finds an inert library there. Everything else that a
/// host can call checks this first, and so does code that continues after a callback, which may
/// have forked.
inline bool isForkedChild() noexcept {
  return hasBeenForked.load(std::memory_order_relaxed);
}

/// Call in a `catch (...)`. True while cancellation or `pthread_exit` unwinds the thread: rethrow
/// then.
inline bool isForcedUnwinding() noexcept {
  return std::current_exception() == nullptr;
}

/// Calls `function` and drops its exceptions. The forced unwinding of a thread by cancellation or
/// `pthread_exit` continues.
template <class Function, class... Arguments>
void dropExceptions(Function&& function, Arguments&&... arguments) {
  try {
    std::forward<Function>(function)(std::forward<Arguments>(arguments)...);
  } catch (...) {
    if (isForcedUnwinding()) throw;
  }
}

/// Set when the library is shut down; no callback starts after that. Process-wide, like the count
/// below: whichever object holds it, a host's context must stay untouched. The test kit resets it.
inline std::atomic<bool> callbacksDisabled{false};

/// Exists while a callback of the host runs.
class HostCall {
 public:
  HostCall() {
    ++underWay;
    ++ownUnderWay;
  }
  ~HostCall() {
    --ownUnderWay;
    --underWay;
  }
  HostCall(const HostCall&) = delete;
  HostCall& operator=(const HostCall&) = delete;

  /// The number of running callbacks, on all threads. Sequentially consistent with
  /// `callbacksDisabled`: once that is set and this is 0, none will run.
  static int count() noexcept { return underWay; }
  static bool isOnThisThread() noexcept { return ownUnderWay > 0; }

 private:
  static inline std::atomic<int> underWay{0};
  static inline constinit thread_local int ownUnderWay = 0;
};

/// Calls `callback` and drops its exceptions. Does not call it in a forked child or after the
/// shutdown. False in these cases and in a child that the callback forked: the caller must then
/// return without using the platform.
template <class Callback, class... Arguments>
bool callHost(const Callback& callback, Arguments&&... arguments) {
  const HostCall call;
  if (isForkedChild() || callbacksDisabled) return false;
  dropExceptions(callback, std::forward<Arguments>(arguments)...);
  return !isForkedChild();
}

}  // namespace veltrano::internal

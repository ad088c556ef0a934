// How the library calls its host.
#pragma once

#include <cxxabi.h>

#include <atomic>
#include <utility>

namespace veltrano::internal {

/// Set by the platform in a forked child, before anything else there can call the library.
inline std::atomic<bool> hasBeenForked{false};

/// True in a child that was forked from the process in which the library ran: there its threads do
/// not exist, and its locks may be held for good.
inline bool isForkedChild() noexcept {
  return hasBeenForked.load(std::memory_order_relaxed);
}

/// Calls `function`. Its exceptions end here, as on the library's threads there is nobody to take
/// them; a forced end of the thread, by its cancellation or by `pthread_exit`, goes on.
template <class Function, class... Arguments>
void dropExceptions(Function&& function, Arguments&&... arguments) {
  try {
    std::forward<Function>(function)(std::forward<Arguments>(arguments)...);
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
  }
}

/// Set by the platform when the library has been shut down: no callback begins after that.
inline std::atomic<bool> isHostGone{false};

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

  /// How many run, on all threads. Together with `isHostGone` it is sequentially consistent: once
  /// that is set and this is 0, none runs any more.
  static int count() noexcept { return underWay; }
  static bool isOnThisThread() noexcept { return ownUnderWay > 0; }

 private:
  static inline std::atomic<int> underWay{0};
  static inline constinit thread_local int ownUnderWay = 0;
};

/// Calls a callback of the host, unless the host is gone or this is a forked child. False when it
/// did not, and in a child that the callback has forked: the caller is to return without using the
/// platform any more.
template <class Callback, class... Arguments>
bool callHost(const Callback& callback, Arguments&&... arguments) {
  const HostCall call;
  if (isForkedChild() || isHostGone) return false;
  dropExceptions(callback, std::forward<Arguments>(arguments)...);
  return !isForkedChild();
}

}  // namespace veltrano::internal

// Calls into the host.
#pragma once

#include <cxxabi.h>

#include <atomic>
#include <utility>

namespace veltrano::internal {

/// Set by the platform in a forked child before any other code runs there.
inline std::atomic<bool> hasBeenForked{false};

/// True in a child forked from the library's process, where the library's threads do not exist and
/// its locks may be held forever.
inline bool isForkedChild() noexcept {
  return hasBeenForked.load(std::memory_order_relaxed);
}

/// Calls `function` and drops its exceptions. The forced unwinding of a thread by cancellation or
/// `pthread_exit` continues.
template <class Function, class... Arguments>
void dropExceptions(Function&& function, Arguments&&... arguments) {
  try {
    std::forward<Function>(function)(std::forward<Arguments>(arguments)...);
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
  }
}

/// Calls `callback`, unless in a forked child, and drops its exceptions. False in a forked child,
/// including one that the callback forked: the caller must return without using the platform.
template <class Callback, class... Arguments>
bool callHost(const Callback& callback, Arguments&&... arguments) {
  if (isForkedChild()) return false;
  dropExceptions(callback, std::forward<Arguments>(arguments)...);
  return !isForkedChild();
}

}  // namespace veltrano::internal

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

/// Calls into the host, but never in a forked child. False in such a child, which the callback may
/// have made: the caller is to return without using the platform any more.
template <class Callback, class... Arguments>
bool callHost(const Callback& callback, Arguments&&... arguments) {
  if (isForkedChild()) return false;
  dropExceptions(callback, std::forward<Arguments>(arguments)...);
  return !isForkedChild();
}

}  // namespace veltrano::internal

// Calls into the host.
#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>
#include <utility>

namespace veltrano::internal {

/// Set by the platform in a forked child before any other code runs there.
inline std::atomic<bool> inForkedChild{false};

/// True in a child forked from the library's process, where the library's threads do not exist and
/// its locks may be held forever. The facade finds an inert library there. Everything else that a
/// host can call checks this first, and so does code that continues after a callback, which may
/// have forked.
inline bool isForkedChild() noexcept {
  return inForkedChild.load(std::memory_order_relaxed);
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

/// Calls a function at the end of its scope, also when the host ends the thread there.
template <class Function>
struct AtScopeEnd {
  ~AtScopeEnd() { function(); }

  const Function function;
};
template <class Function>
AtScopeEnd(Function) -> AtScopeEnd<Function>;

/// Exists while code of the host runs: a callback, or the destructor of what one captured. What it
/// uses may be destroyed while the process exits. Therefore one of the library's threads then
/// leaves neither the constructor nor the destructor, and exit waits for those in between. On the
/// host's own threads, and within another `HostCode`, it does nothing.
class HostCode {
 public:
  HostCode() {
    if (!isLibraryThread || depth++ > 0) return;
    ++threads;
    if (!isProcessExiting) return;
    --threads;
    park();
  }
  ~HostCode() {
    if (!isLibraryThread || --depth > 0) return;
    --threads;
    if (isProcessExiting) park();
  }
  HostCode(const HostCode&) = delete;
  HostCode& operator=(const HostCode&) = delete;

  /// Never returns: ending the thread would run thread-local destructors of OpenSSL and the host.
  [[noreturn]] static void park() noexcept {
    for (;;) isProcessExiting.wait(true);
  }

  /// Exit no longer waits for the calling thread, because that thread is exiting the process.
  static void leaveForExit() noexcept {
    isLibraryThread = false;
    exitsProcess = true;
    if (depth > 0) --threads;
  }

  /// Exists while a run loop may run functions of the host, on the host's own thread. Exit waits
  /// for them. The thread is not parked: the host may join it as it exits.
  class OnLoop {
   public:
    OnLoop() {
      if (depth++ == 0) ++threads;
    }
    ~OnLoop() {
      if (--depth == 0 && !exitsProcess) --threads;
    }
    OnLoop(const OnLoop&) = delete;
    OnLoop& operator=(const OnLoop&) = delete;

    /// False while another thread exits the process.
    static bool mayStart() noexcept { return !isProcessExiting || exitsProcess; }
  };

  /// Whether the platform started the calling thread.
  static inline constinit thread_local bool isLibraryThread = false;
  /// False on the thread that drives the transfers.
  static inline constinit thread_local bool mayRunHere = true;
  /// Sequentially consistent with `threads`: once this is set and that is 0, none will get in.
  static inline std::atomic<bool> isProcessExiting{false};
  static inline std::atomic<int> threads{0};  // that run code of the host, for exit to wait for

 private:
  static inline constinit thread_local bool exitsProcess = false;
  static inline constinit thread_local int depth = 0;
};

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
  const HostCode code;
  const HostCall call;
  if (isForkedChild() || callbacksDisabled) return false;
  dropExceptions(callback, std::forward<Arguments>(arguments)...);
  return !isForkedChild();
}

/// A function of the host: called by `callHost`, and destroyed as its code.
template <class... Arguments>
class HostFunction {
 public:
  HostFunction() = default;
  HostFunction(std::nullptr_t) {}
  HostFunction(std::function<void(Arguments...)> function) : function_(std::move(function)) {}
  HostFunction(HostFunction&& other) noexcept
      : function_(std::exchange(other.function_, nullptr)) {}
  HostFunction& operator=(HostFunction&& other) noexcept {
    std::swap(function_, other.function_);
    return *this;
  }
  ~HostFunction() {
    if (!function_) return;
    const HostCode code;
    function_ = nullptr;
  }

  explicit operator bool() const { return static_cast<bool>(function_); }
  bool call(Arguments... arguments) const { return callHost(function_, arguments...); }

 private:
  std::function<void(Arguments...)> function_;
};

}  // namespace veltrano::internal

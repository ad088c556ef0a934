#include "platform/posix/system/exit_gate.h"

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <new>
#include <thread>

#include "platform/host_callback.h"

namespace veltrano::internal {
namespace {

using Clock = std::chrono::steady_clock;

// The longest delay of the host's exit. A network thread spends microseconds at a time inside
// libcurl and never waits for a peer there, but it may be preempted. The host's code should be
// short, but may wait for the thread that exits.
constexpr std::chrono::milliseconds kMaxWait{2000};
constexpr std::chrono::microseconds kExitPoll{100};

// Not a checked mutex: a fork holds it from one handler to the next.
struct Gate {
  std::mutex mutex;
  std::condition_variable left;
  int inside = 0;  // threads inside libcurl or OpenSSL; guarded by mutex
};

Gate& gate() {
  static Gate& only = *new Gate;
  return only;
}

void beforeFork() {
  std::unique_lock lock(gate().mutex);
  gate().left.wait_for(lock, kMaxWait, [] { return gate().inside == 0; });
  lock.release();
}

void afterFork() {
  gate().mutex.unlock();
}

}  // namespace

void ExitGate::closeAtExit() {
  static auto& mutex = *new std::mutex;
  static bool isRegistered = false;    // guarded by mutex
  static bool isAwareOfForks = false;  // guarded by mutex
  const std::lock_guard lock(mutex);
  gate();  // allocates it: a thread that finds no memory at the gate would end
  isAwareOfForks = isAwareOfForks || pthread_atfork(beforeFork, afterFork, afterFork) == 0;
  isRegistered = isRegistered || std::atexit(close) == 0;
  if (!isAwareOfForks || !isRegistered) throw std::bad_alloc();
}

void ExitGate::enter() {
  {
    const std::lock_guard lock(gate().mutex);
    if (!HostCode::isProcessExiting) {
      ++gate().inside;
      return;
    }
  }
  HostCode::park();
}

void ExitGate::leave() {
  const std::lock_guard lock(gate().mutex);
  --gate().inside;
  gate().left.notify_all();
}

void ExitGate::close() {
  if (isForkedChild()) return;  // the threads do not exist here
  const auto deadline = Clock::now() + kMaxWait;
  HostCode::leaveForExit();
  std::unique_lock lock(gate().mutex);
  HostCode::isProcessExiting = true;
  gate().left.wait_until(lock, deadline, [] { return gate().inside == 0; });
  lock.unlock();
  while (HostCode::threads > 0 && Clock::now() < deadline) std::this_thread::sleep_for(kExitPoll);
}

}  // namespace veltrano::internal

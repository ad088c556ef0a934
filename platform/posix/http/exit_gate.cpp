#include "platform/posix/http/exit_gate.h"

#include <openssl/crypto.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

#include "platform/host_callback.h"

namespace veltrano::internal {
namespace {

// The longest delay of the host's exit. A network thread spends microseconds at a time inside
// libcurl and never waits for a peer there, but it may be preempted.
constexpr std::chrono::milliseconds kMaxWait{2000};

struct Gate {
  std::mutex mutex;
  std::condition_variable left;
  bool isClosed = false;  // guarded by mutex
  int inside = 0;         // threads; guarded by mutex
};

Gate& gate() {
  static Gate& only = *new Gate;
  return only;
}

// A child must not inherit locks of libcurl and OpenSSL held by threads that it does not have.
void beforeFork() {
  std::unique_lock lock(gate().mutex);
  gate().left.wait_for(lock, kMaxWait, [] { return gate().inside == 0; });
  lock.release();
}

void afterFork() {
  gate().mutex.unlock();
}

[[noreturn]] void park(std::unique_lock<std::mutex>& lock) {
  lock.unlock();
  // Never returns: ending the thread would run OpenSSL's thread-local destructor.
  for (;;) pause();
}

}  // namespace

void ExitGate::closeAtExit() noexcept {
  // Exit handlers run in reverse order. If the host registered OpenSSL's, it is older than ours and
  // runs later; otherwise INIT_NO_ATEXIT keeps it from ever being registered.
  static std::atomic<bool> isRegistered{false};
  if (isRegistered.exchange(true)) return;
  if (OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) != 1 || std::atexit(close) != 0 ||
      pthread_atfork(beforeFork, afterFork, afterFork) != 0)
    isRegistered = false;  // out of memory; the next post retries
}

bool ExitGate::isClosed() {
  const std::lock_guard lock(gate().mutex);
  return gate().isClosed;
}

void ExitGate::pass() {
  std::unique_lock lock(gate().mutex);
  if (gate().isClosed) park(lock);
}

void ExitGate::enter() {
  std::unique_lock lock(gate().mutex);
  if (gate().isClosed) park(lock);
  ++gate().inside;
}

void ExitGate::leave() {
  const std::lock_guard lock(gate().mutex);
  --gate().inside;
  gate().left.notify_all();
}

void ExitGate::close() {
  if (isForkedChild()) return;  // the threads do not exist here
  std::unique_lock lock(gate().mutex);
  gate().isClosed = true;
  gate().left.wait_for(lock, kMaxWait, [] { return gate().inside == 0; });
}

}  // namespace veltrano::internal

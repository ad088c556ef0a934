#include "platform/posix/http/http_exit_gate.h"

#include <openssl/crypto.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

#include "platform/posix/threads/fork.h"

namespace veltrano {
namespace {

using Clock = std::chrono::steady_clock;

// The longest that the host's exit is held up, when a network thread is slow to leave.
constexpr std::chrono::milliseconds kLongestWait{100};

std::atomic<ExitGate*> gates{nullptr};           // the newest one; they form a list
thread_local const ExitGate* ownGate = nullptr;  // the one that this thread has passed

}  // namespace

void ExitGate::open() {
  // Handlers run latest first. OpenSSL's own, if the host has had it registered, is therefore
  // older than ours and runs later; if not, it is never registered at all.
  static const bool registered =
      OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 1 && std::atexit(closeAll) == 0;
  static_cast<void>(registered);

  next_ = gates.load();
  while (!gates.compare_exchange_weak(next_, this)) {
  }
}

void ExitGate::pass() {
  ownGate = this;
  if (closed_.load()) park();
}

void ExitGate::closeAll() {
  if (isForkedChild()) return;  // no network thread here
  ExitGate* const newest = gates.load();
  for (auto* gate = newest; gate; gate = gate->next_) {
    gate->closed_.store(true);
    gate->wake();
  }
  const auto deadline = Clock::now() + kLongestWait;
  for (auto* gate = newest; gate; gate = gate->next_) {
    // The host may exit in a callback, and so on a network thread.
    if (gate != ownGate) gate->waitUntilParked(deadline);
  }
}

void ExitGate::park() {
  {
    const std::lock_guard lock(mutex_);
    parked_ = true;
  }
  parkedChanged_.notify_all();
  // Not by returning: the end of the thread would run OpenSSL's destructor for it.
  for (;;) pause();
}

void ExitGate::waitUntilParked(Clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  parkedChanged_.wait_until(lock, deadline, [&] { return parked_; });
}

}  // namespace veltrano

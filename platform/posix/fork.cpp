#include "platform/posix/fork.h"

#include <pthread.h>

#include <atomic>

namespace veltrano {
namespace {

std::atomic<bool> forked{false};

}  // namespace

void watchForks() {
  static const int registered =
      pthread_atfork(nullptr, nullptr, [] { forked.store(true, std::memory_order_relaxed); });
  static_cast<void>(registered);  // fails for want of memory only; then forks go unnoticed
}

bool isForkedChild() noexcept {
  return forked.load(std::memory_order_relaxed);
}

}  // namespace veltrano

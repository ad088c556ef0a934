#include "platform/process.h"

#include <atomic>

namespace veltrano {
namespace {

std::atomic<bool> isForked{false};

}  // namespace

bool isForkedChild() noexcept {
  return isForked.load(std::memory_order_relaxed);
}

void becomeForkedChild() noexcept {
  isForked.store(true, std::memory_order_relaxed);
}

}  // namespace veltrano

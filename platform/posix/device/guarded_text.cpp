#include "platform/posix/device/guarded_text.h"

#include <utility>

namespace veltrano {

void GuardedText::set(std::optional<std::string> text) {
  const std::lock_guard lock(mutex_);
  text_.swap(text);
  isPresent_.store(text_.has_value(), std::memory_order_relaxed);
}

std::optional<std::string> GuardedText::get() const {
  if (!isPresent_.load(std::memory_order_relaxed)) return std::nullopt;
  const std::lock_guard lock(mutex_);
  return text_;
}

}  // namespace veltrano

#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host_callback.h"
#include "platform/mutex.h"

namespace veltrano::internal {

/// The host's refresh handler and the event names that trigger it, replaced atomically.
/// Thread-safe.
class RefreshTriggers {
 public:
  void set(const std::optional<std::vector<std::string>>& triggers, HostFunction<> handler);

  /// Calls the handler if `eventName` is canonically equivalent to a trigger. False in a child that
  /// the handler forked.
  bool callHandlerFor(std::string_view eventName) const {
    return !isSet_.load(std::memory_order_acquire) || callHandlerIfTriggered(eventName);
  }

 private:
  struct Pair {
    std::vector<std::string> decomposedTriggers;
    HostFunction<> handler;
  };

  bool callHandlerIfTriggered(std::string_view eventName) const;

  std::atomic<bool> isSet_{false};  // lets most calls skip the lock
  mutable Mutex mutex_;
  std::shared_ptr<const Pair> pair_ GUARDED_BY(mutex_);  // null without triggers or a handler
};

}  // namespace veltrano::internal

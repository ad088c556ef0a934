#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltrano::internal {

/// The event names that call the host's refresh handler, together with that handler. They are
/// replaced and read as one. Safe to use from any thread.
class RefreshTriggers {
 public:
  using Handler = std::function<void()>;

  void set(const std::optional<std::vector<std::string>>& triggers, Handler handler);

  /// Calls the handler when `eventName` is among the triggers, under canonical equivalence. False
  /// in a forked child that the handler has made.
  bool callHandlerFor(std::string_view eventName) const;

 private:
  struct Pair {
    std::vector<std::string> decomposedTriggers;
    Handler handler;
  };

  std::atomic<bool> isSet_{false};  // spares most calls the lock
  mutable std::mutex mutex_;
  std::shared_ptr<const Pair> pair_;  // guarded by mutex_; null when nothing can fire
};

}  // namespace veltrano::internal

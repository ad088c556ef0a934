#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <string>

namespace veltrano {

/// A text that may be absent and may change. Safe to use from any thread; reading an absent one
/// takes no lock.
class GuardedText {
 public:
  void set(std::optional<std::string> text);

  std::optional<std::string> get() const;

 private:
  std::atomic<bool> isPresent_{false};
  mutable std::mutex mutex_;
  std::optional<std::string> text_;  // guarded by mutex_
};

}  // namespace veltrano

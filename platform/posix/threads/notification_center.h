#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/mutex.h"
#include "platform/notification_center.h"

namespace veltrano::internal {

class PosixNotificationCenter final : public NotificationCenter {
 public:
  void addObserver(std::string_view name, std::function<void()> observer) override;

  /// Runs the current observers of `name` and drops their exceptions.
  void post(std::string_view name) const;

 private:
  using Observers = std::vector<std::shared_ptr<const std::function<void()>>>;

  mutable Mutex mutex_;
  std::map<std::string, Observers, std::less<>> observers_ GUARDED_BY(mutex_);
};

}  // namespace veltrano::internal

#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/host_callback.h"
#include "platform/mutex.h"

namespace veltrano::internal {

inline constexpr std::string_view kApplicationWillEnterForeground =
    "UIApplicationWillEnterForegroundNotification";
inline constexpr std::string_view kApplicationDidEnterBackground =
    "UIApplicationDidEnterBackgroundNotification";
inline constexpr std::string_view kApplicationDidBecomeActive =
    "UIApplicationDidBecomeActiveNotification";
inline constexpr std::string_view kApplicationWillResignActive =
    "UIApplicationWillResignActiveNotification";
inline constexpr std::string_view kApplicationDidChangeStatusBarOrientation =
    "UIApplicationDidChangeStatusBarOrientationNotification";
inline constexpr std::string_view kDeviceOrientationDidChange =
    "UIDeviceOrientationDidChangeNotification";

/// Delivers named notifications to observers. Thread-safe.
class NotificationCenter {
 public:
  virtual ~NotificationCenter() = default;

  /// Registers `observer` for notifications called `name`, as long as the center lives. Posting
  /// runs the observers synchronously on the posting thread, in registration order and without a
  /// lock.
  // NOLINTNEXTLINE(performance-unnecessary-value-param): for implementations to keep
  virtual void addObserver(std::string_view /*name*/, std::function<void()> /*observer*/) {}
};

/// Delivers what the process posts itself.
class LocalNotificationCenter : public NotificationCenter {
 public:
  void addObserver(std::string_view name, std::function<void()> observer) override {
    auto shared = std::make_shared<const std::function<void()>>(std::move(observer));
    const Lock lock(mutex_);
    observers_[std::string(name)].push_back(std::move(shared));
  }

  /// Runs the current observers of `name` and drops their exceptions.
  void post(std::string_view name) const {
    Observers observers;
    {
      const Lock lock(mutex_);
      if (const auto found = observers_.find(name); found != observers_.end())
        observers = found->second;
    }
    for (const auto& observer : observers) {
      dropExceptions(*observer);
      if (isForkedChild()) return;
    }
  }

  /// Removes the observers once their library has ended.
  void drop() {
    const Lock lock(mutex_);
    observers_.clear();
  }

 private:
  using Observers = std::vector<std::shared_ptr<const std::function<void()>>>;

  mutable Mutex mutex_;
  std::map<std::string, Observers, std::less<>> observers_ GUARDED_BY(mutex_);
};

}  // namespace veltrano::internal

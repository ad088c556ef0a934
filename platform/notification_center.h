#pragma once

#include <functional>
#include <string_view>

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

}  // namespace veltrano::internal

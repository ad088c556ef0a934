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

/// Delivers named notifications to observers. Safe to call from any thread.
class NotificationCenter {
 public:
  virtual ~NotificationCenter() = default;

  /// Calls `observer` for every later notification called `name`, whoever posts it, for the rest of
  /// the process. A posting runs its observers in the order of their registration, on the posting
  /// thread, before it returns; no lock is held meanwhile.
  // NOLINTNEXTLINE(performance-unnecessary-value-param): for implementations to keep
  virtual void addObserver(std::string_view /*name*/, std::function<void()> /*observer*/) {}
};

}  // namespace veltrano::internal

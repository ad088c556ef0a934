// The device and the host application, as the operating system reports them. Everything here is
// thread-safe and returns at once.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

namespace veltrano::internal {

/// A size on the screen, in points.
struct ScreenSize {
  double width = 0;
  double height = 0;
};

/// The device and its main screen.
class Device {
 public:
  virtual ~Device() = default;

  virtual ScreenSize mainScreenSize() const { return {}; }
  virtual std::string systemName() const { return {}; }
  virtual std::string systemVersion() const { return {}; }

  /// The `machine` field of `uname`; empty when the call fails.
  virtual std::string machine() const { return {}; }

  /// 0 unknown, 1 portrait, 2 portrait upside down, 3 landscape left, 4 landscape right, 5 face up,
  /// 6 face down; other values may occur.
  virtual int orientation() const { return 0; }
};

enum class ApplicationState { active = 0, inactive = 1, background = 2 };

/// The host application.
class Application {
 public:
  virtual ~Application() = default;

  virtual ApplicationState state() const { return ApplicationState::background; }

  /// 1 portrait, 2 portrait upside down, 3 and 4 landscape, 0 unknown; other values may occur.
  virtual int interfaceOrientation() const { return 0; }
};

/// The networking framework's connectivity monitor.
class ZKConnectivityManager {
 public:
  virtual ~ZKConnectivityManager() = default;

  /// True while the device is connected over Wi-Fi.
  virtual bool isReachableOnWiFi() const { return false; }
};

/// The cellular subscriptions of the device.
class CTTelephonyNetworkInfo {
 public:
  virtual ~CTTelephonyNetworkInfo() = default;

  /// The carrier name of the first service subscriber; none without a subscription or a name.
  virtual std::optional<std::string> carrierName() const { return std::nullopt; }
};

/// The user's decision about tracking.
class ATTrackingManager {
 public:
  virtual ~ATTrackingManager() = default;

  /// 0 not determined, 1 restricted, 2 denied, 3 authorised.
  virtual std::uint64_t trackingAuthorizationStatus() const { return 0; }
};

/// What every event asks the three services above, in one place that a platform may write and calls
/// read: a call that comes alone finds none of it in the processor's caches.
struct MomentaryFacts {
  std::atomic<bool> isReachableOnWiFi{false};
  std::atomic<bool> hasCarrierName{false};
  std::atomic<std::uint64_t> trackingAuthorizationStatus{0};
};

/// The advertising identifier.
class ASIdentifierManager {
 public:
  virtual ~ASIdentifierManager() = default;

  /// Canonical UUID text: 36 characters, upper case; all zeros when there is no identifier.
  virtual std::string advertisingIdentifier() const {
    return "00000000-0000-0000-0000-000000000000";
  }
};

}  // namespace veltrano::internal

#pragma once

namespace veltrano::internal {

/// The networking framework's connectivity monitor. Safe to call from any thread, without waiting.
class ZKConnectivityManager {
 public:
  virtual ~ZKConnectivityManager() = default;

  /// True while the device is connected over Wi-Fi.
  virtual bool isReachableOnWiFi() const { return false; }
};

}  // namespace veltrano::internal

#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/device.h"
#include "platform/mutex.h"
#include "veltrano/posix_platform.h"

namespace veltrano::internal {

/// What the host reports about itself and the device: the latest report of each kind. Thread-safe.
class HostReports final : public Application,
                          public Device,
                          public CTTelephonyNetworkInfo,
                          public ATTrackingManager,
                          public ASIdentifierManager {
 public:
  /// Starts with what `options` say; a system name or version that they lack comes from `uname`.
  /// Keeps in `facts` what every event asks for.
  HostReports(const PosixOptions& options, MomentaryFacts& facts);

  void setState(ApplicationState state) { state_ = state; }
  void setInterfaceOrientation(int orientation) { interfaceOrientation_ = orientation; }
  void setDeviceOrientation(int orientation) { deviceOrientation_ = orientation; }
  void setScreenSize(ScreenSize size);
  void setCarrierName(std::optional<std::string> name);
  void setTrackingAuthorizationStatus(std::uint64_t status) {
    facts_.trackingAuthorizationStatus = status;
  }
  /// Anything that is not a UUID counts as none.
  void setAdvertisingIdentifier(const std::optional<std::string>& identifier);

  ApplicationState state() const override { return state_; }
  int interfaceOrientation() const override { return interfaceOrientation_; }
  int orientation() const override { return deviceOrientation_; }
  ScreenSize mainScreenSize() const override;
  std::string systemName() const override { return systemName_; }
  std::string systemVersion() const override { return systemVersion_; }
  std::string machine() const override { return machine_; }
  std::optional<std::string> carrierName() const override;
  std::uint64_t trackingAuthorizationStatus() const override {
    return facts_.trackingAuthorizationStatus;
  }
  std::string advertisingIdentifier() const override;

 private:
  MomentaryFacts& facts_;
  std::string systemName_, systemVersion_, machine_;
  std::atomic<ApplicationState> state_;
  std::atomic<int> interfaceOrientation_, deviceOrientation_;
  mutable Mutex mutex_;
  ScreenSize screenSize_ GUARDED_BY(mutex_);
  std::optional<std::string> carrierName_ GUARDED_BY(mutex_);
  std::optional<std::string> identifier_ GUARDED_BY(mutex_);
};

}  // namespace veltrano::internal

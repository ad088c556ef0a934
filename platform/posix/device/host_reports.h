// What the host reports about itself and the device. Each object stores the latest report.
// Everything here is thread-safe.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "platform/device.h"
#include "platform/mutex.h"

namespace veltrano::internal {

class PosixApplication final : public Application {
 public:
  PosixApplication(ApplicationState state, int interfaceOrientation)
      : state_(state), interfaceOrientation_(interfaceOrientation) {}

  void setState(ApplicationState state) { state_ = state; }
  void setInterfaceOrientation(int orientation) { interfaceOrientation_ = orientation; }

  ApplicationState state() const override { return state_; }
  int interfaceOrientation() const override { return interfaceOrientation_; }

 private:
  std::atomic<ApplicationState> state_;
  std::atomic<int> interfaceOrientation_;
};

class PosixDevice final : public Device {
 public:
  /// The system's name and version come from `uname` when the host gives none.
  PosixDevice(std::optional<std::string> systemName, std::optional<std::string> systemVersion);

  void setMainScreenSize(ScreenSize size);
  void setOrientation(int orientation) { orientation_ = orientation; }

  ScreenSize mainScreenSize() const override;
  std::string systemName() const override { return systemName_; }
  std::string systemVersion() const override { return systemVersion_; }
  std::string machine() const override { return machine_; }
  int orientation() const override { return orientation_; }

 private:
  std::string systemName_;
  std::string systemVersion_;
  std::string machine_;
  mutable Mutex mutex_;
  ScreenSize screenSize_ GUARDED_BY(mutex_);  // read once per process
  std::atomic<int> orientation_{0};
};

class ReportedText {
 public:
  void set(std::optional<std::string> text);

  std::optional<std::string> get() const;

 private:
  mutable Mutex mutex_;
  std::optional<std::string> text_ GUARDED_BY(mutex_);
};

class PosixTelephony final : public CTTelephonyNetworkInfo {
 public:
  /// Keeps in `facts` whether there is a name.
  explicit PosixTelephony(MomentaryFacts& facts) : facts_(facts) {}

  void setCarrierName(std::optional<std::string> name) {
    const bool hasName = name.has_value();
    carrierName_.set(std::move(name));
    facts_.hasCarrierName = hasName;
  }

  std::optional<std::string> carrierName() const override { return carrierName_.get(); }

 private:
  MomentaryFacts& facts_;
  ReportedText carrierName_;
};

class PosixTracking final : public ATTrackingManager {
 public:
  /// Keeps the status in `facts`.
  explicit PosixTracking(MomentaryFacts& facts) : facts_(facts) {}

  void setTrackingAuthorizationStatus(std::uint64_t status) {
    facts_.trackingAuthorizationStatus = status;
  }

  std::uint64_t trackingAuthorizationStatus() const override {
    return facts_.trackingAuthorizationStatus;
  }

 private:
  MomentaryFacts& facts_;
};

class PosixIdentifiers final : public ASIdentifierManager {
 public:
  /// Anything that is not a UUID counts as none.
  void setAdvertisingIdentifier(std::optional<std::string> identifier);

  std::string advertisingIdentifier() const override;

 private:
  ReportedText identifier_;
};

}  // namespace veltrano::internal

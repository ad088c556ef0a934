// The device and the host application, as a platform is told about them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "encoding/uuid.h"
#include "platform/device.h"
#include "platform/mutex.h"

namespace veltrano::internal {

/// What the device and the application answer.
struct DeviceFacts {
  ScreenSize screen = {};
  std::string name = {};
  std::string version = {};
  std::string machineName = {};
  int deviceOrientation = 0;
  int screenOrientation = 0;
  ApplicationState applicationState = ApplicationState::active;
  std::optional<std::string> carrier = {};
  std::uint64_t trackingStatus = 0;
  std::string identifier = ASIdentifierManager().advertisingIdentifier();
  bool isOnWiFi = false;

  /// Anything but a UUID counts as no identifier.
  void identify(const std::optional<std::string>& uuid) {
    identifier =
        canonicalUUID(uuid.value_or("")).value_or(ASIdentifierManager().advertisingIdentifier());
  }
};
using DeviceChange = std::function<void(DeviceFacts&)>;

/// Answers with the latest of its facts. Thread-safe.
class ReportedDevice : public Device,
                       public Application,
                       public CTTelephonyNetworkInfo,
                       public ATTrackingManager,
                       public ASIdentifierManager,
                       public ZKConnectivityManager {
 public:
  explicit ReportedDevice(DeviceFacts facts = {}) : facts_(std::move(facts)) {}

  ScreenSize mainScreenSize() const override { return get(&DeviceFacts::screen); }
  std::string systemName() const override { return get(&DeviceFacts::name); }
  std::string systemVersion() const override { return get(&DeviceFacts::version); }
  std::string machine() const override { return get(&DeviceFacts::machineName); }
  int orientation() const override { return get(&DeviceFacts::deviceOrientation); }
  ApplicationState state() const override { return get(&DeviceFacts::applicationState); }
  int interfaceOrientation() const override { return get(&DeviceFacts::screenOrientation); }
  std::optional<std::string> carrierName() const override { return get(&DeviceFacts::carrier); }
  std::uint64_t trackingAuthorizationStatus() const override {
    return get(&DeviceFacts::trackingStatus);
  }
  std::string advertisingIdentifier() const override { return get(&DeviceFacts::identifier); }
  bool isReachableOnWiFi() const override { return get(&DeviceFacts::isOnWiFi); }

  DeviceFacts facts() const {
    const Lock lock(mutex_);
    return facts_;
  }
  template <class Fact, class Value>
  void set(Fact DeviceFacts::*fact, Value value) {
    change([&](DeviceFacts& facts) { facts.*fact = std::move(value); });
  }
  template <class Change>
  void change(Change change) {
    const Lock lock(mutex_);
    change(facts_);
  }

 private:
  template <class Fact>
  Fact get(Fact DeviceFacts::*fact) const {
    const Lock lock(mutex_);
    return facts_.*fact;
  }

  mutable Mutex mutex_;
  DeviceFacts facts_ GUARDED_BY(mutex_);
};

}  // namespace veltrano::internal

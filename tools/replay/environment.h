#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "platform/device.h"
#include "platform/simulated/simulated_url_session.h"
#include "tools/replay/trace.h"
#include "veltrano/value.h"

namespace replay {

/// The initial state of the platform.
struct Configuration {
  veltrano::internal::Duration startTime = std::chrono::seconds(1'700'000'000);
  veltrano::internal::ScreenSize screen{390, 844};
  std::string systemName = "iOS";
  std::string systemVersion = "17.0";
  std::string machine = "iPhone15,2";
  std::optional<veltrano::HostMap> info;
  bool libraryHasResources = true;
  std::optional<veltrano::HostMap> resourceBundle =
      veltrano::HostMap{{"CFBundleShortVersionString", "1.0.0"}};
  std::optional<veltrano::HostMap> libraryInfo;
  std::map<std::string, double> defaults;
};

/// A change of the device's state. Absent fields do not change.
struct DeviceChange {
  std::optional<bool> isOnWiFi;
  std::optional<std::optional<std::string>> carrier;
  std::optional<std::uint64_t> trackingStatus;
  std::optional<std::string> advertisingIdentifier;
};

/// The outside world of a scenario. Used on the main thread.
class Environment {
 public:
  virtual ~Environment() = default;

  virtual Trace& trace() = 0;

  virtual void change(const DeviceChange& device) = 0;
  virtual void setApplicationState(veltrano::internal::ApplicationState state) = 0;
  virtual void setInterfaceOrientation(int value) = 0;
  virtual void setDeviceOrientation(int value) = 0;
  virtual void postNotification(const std::string& name) = 0;
  virtual void setAnswer(const std::string& path,
                         const veltrano::internal::SimulatedAnswer& answer) = 0;
  virtual void jumpClock(veltrano::internal::Duration distance) = 0;

  /// Runs `action` on a thread that runs no run loop.
  virtual void runWithoutRunLoop(const std::function<void()>& action) = 0;
};

}  // namespace replay

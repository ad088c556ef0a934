// What stands behind `PosixPlatform`: the system, or the world of a test.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/notification_center.h"
#include "platform/reported_device.h"
#include "veltrano/posix_platform.h"

namespace veltrano::internal {

/// An installed platform. Receives what the host reports. Thread-safe.
class PlatformBackend {
 public:
  virtual RunLoop& mainRunLoop() = 0;
  /// With a notification, makes the change on the main thread and then posts it. Without, makes the
  /// change before this returns, on the calling thread.
  virtual void report(DeviceChange change, std::string_view notification) = 0;
  virtual bool shutDown(std::chrono::steady_clock::time_point deadline) = 0;

  void enter(ApplicationState state, std::string_view notification) {
    report([state](DeviceFacts& facts) { facts.applicationState = state; }, notification);
  }
  void setInterfaceOrientation(int orientation) {
    report([orientation](DeviceFacts& facts) { facts.screenOrientation = orientation; },
           kApplicationDidChangeStatusBarOrientation);
  }
  void setDeviceOrientation(int orientation) {
    report([orientation](DeviceFacts& facts) { facts.deviceOrientation = orientation; },
           kDeviceOrientationDidChange);
  }
  void setScreenSize(ScreenSize size) {
    report([&](DeviceFacts& facts) { facts.screen = size; }, {});
  }
  void setCarrierName(std::optional<std::string> name) {
    report([&](DeviceFacts& facts) { facts.carrier = std::move(name); }, {});
  }
  void setTrackingAuthorizationStatus(std::uint64_t status) {
    report([&](DeviceFacts& facts) { facts.trackingStatus = status; }, {});
  }
  void setAdvertisingIdentifier(const std::optional<std::string>& identifier) {
    report([&](DeviceFacts& facts) { facts.identify(identifier); }, {});
  }

 protected:
  ~PlatformBackend() = default;
};

/// Where `PosixPlatform` installs. Thread-safe.
class Installer {
 public:
  /// Returns why the platform is refused; empty if it is installed. `error` says why the options
  /// are invalid, and `fileError` what is wrong with the files that they name; empty if nothing is.
  virtual std::string install(PosixOptions options, std::string error, std::string fileError) = 0;

  /// Null if none is installed.
  virtual PlatformBackend* installed() = 0;

  /// Null on threads that keep their own run loop.
  virtual RunLoop* currentRunLoop() { return nullptr; }

  /// The process's: the system's unless it is replaced.
  static Installer& current() noexcept;

  /// Replaces the process's and returns the old one. Null stands for the system's.
  static Installer* exchangeCurrent(Installer* installer) noexcept {
    return replacement.exchange(installer);
  }

 protected:
  ~Installer() = default;

 private:
  static inline constinit std::atomic<Installer*> replacement{nullptr};
};

/// Null if there is none.
PosixPlatform* installedPlatform() noexcept;

}  // namespace veltrano::internal

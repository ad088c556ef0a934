// What implements `PosixPlatform`: the system, or the world of a test.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/device.h"
#include "veltrano/posix_platform.h"

namespace veltrano::internal {

/// Receives what a host reports. Thread-safe.
class PlatformBackend {
 public:
  virtual RunLoop& mainRunLoop() = 0;
  virtual void enter(ApplicationState state, std::string_view notification) = 0;
  virtual void setInterfaceOrientation(int orientation) = 0;
  virtual void setDeviceOrientation(int orientation) = 0;
  virtual void setScreenSize(ScreenSize size) = 0;
  virtual void setCarrierName(std::optional<std::string> name) = 0;
  virtual void setTrackingAuthorizationStatus(std::uint64_t status) = 0;
  virtual void setAdvertisingIdentifier(std::optional<std::string> identifier) = 0;
  virtual bool shutDown(std::chrono::steady_clock::time_point deadline) = 0;

 protected:
  ~PlatformBackend() = default;
};

/// A test's backend. Platforms that are installed while it is set use it.
class TestBackend : public PlatformBackend {
 public:
  /// Returns why the platform is refused; empty if it is not. `error` says why the options are
  /// invalid; if it is empty, they are valid and the Info dictionary has been read.
  virtual std::string install(PosixOptions options, std::string error) = 0;

  /// Null on threads that keep their own run loop.
  virtual RunLoop* currentRunLoop() = 0;

 protected:
  ~TestBackend() = default;
};

/// Sets the test backend; null removes it. A platform installed under the previous one is no longer
/// installed, and is a no-op while there is no backend.
void setTestBackend(TestBackend* backend) noexcept;

/// Null if there is none.
PosixPlatform* installedPlatform() noexcept;

}  // namespace veltrano::internal

// What stands behind a host's `PosixPlatform`: the system, or the world that a test puts there.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/device.h"
#include "veltrano/posix_platform.h"

namespace veltrano::internal {

/// Takes what a host reports. Safe to call from any thread.
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

/// The backend of every platform that is installed while a test has it in place.
class TestBackend : public PlatformBackend {
 public:
  /// Why the platform is refused; empty when it is not. The options have been checked, and the Info
  /// dictionary has been read.
  virtual std::string install(PosixOptions options) = 0;

  /// Null on a thread whose run loop is its own.
  virtual RunLoop* currentRunLoop() = 0;

 protected:
  ~TestBackend() = default;
};

/// Puts `backend` in place, or takes away the one that is when null. A platform that was installed
/// under one is not installed any more, and does nothing while there is none.
void setTestBackend(TestBackend* backend) noexcept;

/// Null when there is none.
PosixPlatform* installedPlatform() noexcept;

}  // namespace veltrano::internal

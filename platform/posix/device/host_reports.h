#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/reported_device.h"
#include "veltrano/posix_platform.h"

namespace veltrano::internal {

/// What the host reports about itself and the device, and whether that is on Wi-Fi. Keeps in
/// `facts` what every event asks for. Thread-safe.
class HostReports final : public ReportedDevice {
 public:
  /// Starts with what `options` say; a system name or version that they lack comes from `uname`.
  HostReports(const PosixOptions& options, MomentaryFacts& facts);

  void setCarrierName(std::optional<std::string> name);
  void setTrackingAuthorizationStatus(std::uint64_t status);
  /// Anything that is not a UUID counts as none.
  void setAdvertisingIdentifier(const std::optional<std::string>& identifier);

  /// Call after each change of the network. If memory runs out, the last answer stays.
  void lookForWiFi() noexcept;

 private:
  MomentaryFacts& facts_;
};

}  // namespace veltrano::internal

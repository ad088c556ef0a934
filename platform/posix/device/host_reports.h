#pragma once

#include "platform/reported_device.h"
#include "veltrano/posix_platform.h"

namespace veltrano::internal {

/// What the host reports about itself and the device, and whether that is on Wi-Fi. Keeps in
/// `facts` what every event asks for. Thread-safe.
class HostReports final : public ReportedDevice {
 public:
  /// Starts with what `options` say; a system name or version that they lack comes from `uname`.
  HostReports(const PosixOptions& options, MomentaryFacts& facts);

  void report(const DeviceChange& reported);

  /// Call after each change of the network. If memory runs out, the last answer stays.
  void lookForWiFi() noexcept;

 private:
  MomentaryFacts& momentary_;
};

}  // namespace veltrano::internal

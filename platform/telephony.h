#pragma once

#include <optional>
#include <string>

namespace veltrano::internal {

/// The cellular subscriptions of the device. Safe to call from any thread, without waiting.
class CTTelephonyNetworkInfo {
 public:
  virtual ~CTTelephonyNetworkInfo() = default;

  /// The carrier name of the first service subscriber; none without a subscription or a name.
  virtual std::optional<std::string> carrierName() const { return std::nullopt; }
};

}  // namespace veltrano::internal

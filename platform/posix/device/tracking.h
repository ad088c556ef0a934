#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/posix/device/guarded_text.h"
#include "platform/tracking.h"

namespace veltrano {

/// The user's decision as the host last reported it.
class PosixTracking final : public ATTrackingManager {
 public:
  void setTrackingAuthorizationStatus(std::uint64_t status) { status_ = status; }

  std::uint64_t trackingAuthorizationStatus() const override { return status_; }

 private:
  std::atomic<std::uint64_t> status_{0};
};

/// The identifier that the host last gave.
class PosixIdentifiers final : public ASIdentifierManager {
 public:
  /// Anything but the text of a UUID counts as none.
  void setAdvertisingIdentifier(std::optional<std::string> identifier);

  std::string advertisingIdentifier() const override;

 private:
  GuardedText identifier_;
};

/// The canonical text of the UUID that `text` stands for; none when it stands for none.
std::optional<std::string> canonicalUUID(std::string_view text);

}  // namespace veltrano

#pragma once

#include <cstdint>
#include <string>

namespace veltrano::internal {

/// What the user has decided about being tracked. Safe to call from any thread, without waiting.
class ATTrackingManager {
 public:
  virtual ~ATTrackingManager() = default;

  /// 0 not determined, 1 restricted, 2 denied, 3 authorised.
  virtual std::uint64_t trackingAuthorizationStatus() const { return 0; }
};

/// The advertising identifier. Safe to call from any thread.
class ASIdentifierManager {
 public:
  virtual ~ASIdentifierManager() = default;

  /// Canonical UUID text: 36 characters, upper case; all zeros when there is no identifier.
  virtual std::string advertisingIdentifier() const {
    return "00000000-0000-0000-0000-000000000000";
  }
};

}  // namespace veltrano::internal

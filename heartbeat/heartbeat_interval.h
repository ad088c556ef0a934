#pragma once

#include <string_view>

#include "platform/user_defaults.h"

namespace veltrano::internal {

inline constexpr std::string_view kHeartbeatIntervalKey = "kelvora_heartbeat_interval";

/// The seconds between two heartbeats: the stored value if positive, else 20.
inline double heartbeatInterval(const UserDefaults& defaults) {
  const double stored = defaults.doubleForKey(kHeartbeatIntervalKey);
  return stored > 0 ? stored : 20;
}

/// Stores `seconds` without checking it. No-op when the store holds that value already; a value
/// that could not be written before is written again.
inline void setHeartbeatInterval(UserDefaults& defaults, double seconds) {
  if (!defaults.isStored(seconds, kHeartbeatIntervalKey))
    defaults.setDouble(seconds, kHeartbeatIntervalKey);
}

}  // namespace veltrano::internal

#pragma once

#include <string_view>

#include "platform/user_defaults.h"

namespace veltrano::internal {

inline constexpr std::string_view kHeartbeatIntervalKey = "kelvora_heartbeat_interval";

/// The seconds between two heartbeats, as stored in the user defaults: what is stored when that is
/// more than 0, else 20.
inline double heartbeatInterval(const UserDefaults& defaults) {
  const double stored = defaults.doubleForKey(kHeartbeatIntervalKey);
  return stored > 0 ? stored : 20;
}

/// Stores `seconds`, whatever it is, unless that is what is stored already. What could not be
/// written is written again.
inline void setHeartbeatInterval(UserDefaults& defaults, double seconds) {
  if (!defaults.isStored(seconds, kHeartbeatIntervalKey))
    defaults.setDouble(seconds, kHeartbeatIntervalKey);
}

}  // namespace veltrano::internal

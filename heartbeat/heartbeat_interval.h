#pragma once

#include "platform/user_defaults.h"

namespace veltrano {

/// The seconds between two heartbeats, as stored in the user defaults: what is stored when that is
/// more than 0, else 20.
double heartbeatInterval(const UserDefaults& defaults);

/// Stores `seconds`, whatever it is, unless that is what is stored already.
void setHeartbeatInterval(UserDefaults& defaults, double seconds);

}  // namespace veltrano

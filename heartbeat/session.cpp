#include "heartbeat/session.h"

#include <utility>

namespace veltrano::internal {

void Session::use(WallTime now, std::string newID) {
  if (!lastTimeUsed_ || std::chrono::abs(now - *lastTimeUsed_) > kInactivityTimeout) {
    id_ = std::move(newID);
    timeCreated_ = now;
  }
  lastTimeUsed_ = now;
}

Duration Session::durationAt(WallTime now) const {
  return std::chrono::abs(now - timeCreated_);
}

}  // namespace veltrano::internal

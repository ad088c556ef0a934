#include "heartbeat/session.h"

#include <utility>

namespace veltrano::internal {

bool Session::isOverAt(WallTime now) const {
  return !lastTimeUsed_ || std::chrono::abs(now - *lastTimeUsed_) > kInactivityTimeout;
}

void Session::use(WallTime now, std::string newID) {
  if (isOverAt(now)) {
    id_ = std::move(newID);
    timeCreated_ = now;
  }
  lastTimeUsed_ = now;
}

Duration Session::durationAt(WallTime now) const {
  return std::chrono::abs(now - timeCreated_);
}

}  // namespace veltrano::internal

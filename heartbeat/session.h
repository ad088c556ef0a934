#pragma once

#include <optional>
#include <string>
#include <utility>

#include "encoding/time.h"

namespace veltrano::internal {

/// A user's session: a series of heartbeats without a long gap.
class Session {
 public:
  /// The longest gap between two uses of the same session.
  static constexpr Duration kInactivityTimeout = std::chrono::seconds(180);

  /// Uses the session at `now`. Starts a new one, with `newID`, before the first use and when the
  /// last one is further away than the timeout, in either direction.
  void use(WallTime now, std::string newID) {
    if (!lastTimeUsed_ || std::chrono::abs(now - *lastTimeUsed_) > kInactivityTimeout) {
      id_ = std::move(newID);
      timeCreated_ = now;
    }
    lastTimeUsed_ = now;
  }

  /// The current session's identifier; empty before the first use.
  const std::string& id() const { return id_; }

  /// The time between the session's start and `now`, in either direction.
  Duration durationAt(WallTime now) const { return std::chrono::abs(now - timeCreated_); }

 private:
  std::string id_;
  WallTime timeCreated_;
  std::optional<WallTime> lastTimeUsed_;
};

}  // namespace veltrano::internal

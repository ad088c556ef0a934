#pragma once

#include <optional>
#include <string>

#include "encoding/time.h"

namespace veltrano::internal {

/// A run of heartbeats none of which comes long after the one before it.
class Session {
 public:
  /// The longest gap between two uses that keeps a session alive.
  static constexpr Duration kInactivityTimeout = std::chrono::seconds(180);

  /// Whether a use at `now` would begin a new session: when there is none yet, or when the latest
  /// use is further away than the timeout, in either direction of the clock.
  bool isOverAt(WallTime now) const;

  /// Uses the session at `now`, beginning a new one under `newID` when it is over.
  void use(WallTime now, std::string newID);

  /// The current session's identifier; empty before the first use.
  const std::string& id() const { return id_; }

  /// How far `now` is from the start of the session, whichever way the clock went.
  Duration durationAt(WallTime now) const;

 private:
  std::string id_;
  WallTime timeCreated_;
  std::optional<WallTime> lastTimeUsed_;
};

}  // namespace veltrano::internal

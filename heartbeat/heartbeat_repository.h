#pragma once

#include <functional>
#include <string>

namespace veltrano::internal {

/// The way heartbeats leave the process.
class HeartbeatRepository {
 public:
  virtual ~HeartbeatRepository() = default;

  /// Reports that `uid` is active in `sessionID`, which has lasted `sessionDuration` seconds, and
  /// returns at once. `completion` is called once, with whether the report was accepted, later and
  /// on any thread.
  virtual void send(const std::string& uid, const std::string& sessionID, double sessionDuration,
                    std::function<void(bool)> completion) = 0;
};

}  // namespace veltrano::internal

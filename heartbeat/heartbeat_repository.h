#pragma once

#include <functional>
#include <string>

namespace veltrano::internal {

/// Sends heartbeats.
class HeartbeatRepository {
 public:
  virtual ~HeartbeatRepository() = default;

  /// Reports that `uid` is active in `sessionID`, which has lasted `sessionDuration` seconds.
  /// Returns at once. `completion` is called once, later and on any thread, with whether the report
  /// was accepted; not at all when this throws because memory ran out.
  virtual void send(const std::string& uid, const std::string& sessionID, double sessionDuration,
                    std::function<void(bool)> completion) = 0;
};

}  // namespace veltrano::internal

#pragma once

#include "heartbeat/heartbeat_repository.h"

namespace veltrano {

/// Sends heartbeats to the collection host.
class RemoteHeartbeatRepository final : public HeartbeatRepository {
 public:
  void send(const std::string& uid, const std::string& sessionID, double sessionDuration,
            std::function<void(bool)> completion) override;
};

}  // namespace veltrano

#include "heartbeat/remote_heartbeat_repository.h"

#include <utility>

#include "heartbeat/heartbeat_endpoint_request.h"

namespace veltrano {

void RemoteHeartbeatRepository::send(const std::string& uid, const std::string& sessionID,
                                     double sessionDuration, std::function<void(bool)> completion) {
  HeartbeatEndpointRequest(uid, sessionID, sessionDuration).send(std::move(completion));
}

}  // namespace veltrano

#pragma once

#include <functional>
#include <memory>
#include <string>

#include "properties/property_map.h"

namespace veltrano {

/// One heartbeat to "/heartbeat". Built and sent within one heartbeat step; nothing of it is needed
/// once `send` has returned.
class HeartbeatEndpointRequest {
 public:
  /// Takes the clock, the orientations and the super properties as they are now.
  HeartbeatEndpointRequest(std::string uid, const std::string& sessionID, double sessionDuration);

  /// `completion` is called once, on a thread of the networking framework: with true when the host
  /// accepted the heartbeat, with false when it is recorded as "Heartbeat Failed".
  void send(std::function<void(bool)> completion) const;

 private:
  const std::string uid_;
  const std::shared_ptr<const PropertyMap> superProperties_;
  const std::string body_;  // JSON
};

}  // namespace veltrano

// The request of a heartbeat and its response.
#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "heartbeat/heartbeat_repository.h"
#include "properties/property_map.h"
#include "upload/collection_client.h"

namespace veltrano::internal {

/// The current state of the tracker and the device, as a heartbeat reports it.
struct HeartbeatFacts {
  std::shared_ptr<const PropertyMap> superProperties;
  std::string screenOrientation;
  std::string deviceOrientation;
};

/// One heartbeat. May be destroyed as soon as `send` returns.
class HeartbeatEndpointRequest {
 public:
  /// Builds the body, with the current time.
  HeartbeatEndpointRequest(const CollectionClient& client, const HeartbeatFacts& facts,
                           std::string uid, const std::string& sessionID, double sessionDuration);

  /// Calls `completion` once, on a thread of the networking framework, with whether the host
  /// accepted the heartbeat.
  void send(std::function<void(bool)> completion) const;

 private:
  const CollectionClient& client_;
  const std::string uid_;
  const std::shared_ptr<const PropertyMap> superProperties_;
  const std::string body_;  // JSON
};

/// Sends heartbeats to the collection host.
class RemoteHeartbeatRepository final : public HeartbeatRepository {
 public:
  /// `takeFacts` is called for each heartbeat.
  RemoteHeartbeatRepository(const CollectionClient& client,
                            std::function<HeartbeatFacts()> takeFacts)
      : client_(client), takeFacts_(std::move(takeFacts)) {}

  void send(const std::string& uid, const std::string& sessionID, double sessionDuration,
            std::function<void(bool)> completion) override {
    client_.accounting.heartbeatSent();
    try {
      HeartbeatEndpointRequest(client_, takeFacts_(), uid, sessionID, sessionDuration)
          .send(std::move(completion));
    } catch (const std::exception&) {
      client_.accounting.heartbeatFailed();
      throw;
    }
  }

 private:
  const CollectionClient& client_;
  const std::function<HeartbeatFacts()> takeFacts_;
};

/// The collection host's response to a heartbeat.
struct VLTrackingEvent {
  /// Empty unless the text is an object with a numeric "back_off_seconds".
  static VLTrackingEvent fromJSON(std::string_view text);

  /// The interval that the collection host asks for, in seconds.
  std::optional<double> backOffSeconds;
};

}  // namespace veltrano::internal

#pragma once

#include <functional>
#include <span>
#include <string>

#include "properties/property_map.h"
#include "upload/collection_client.h"

namespace veltrano::internal {

/// One recorded event as JSON: {"event": name, "properties": {...}}. Encoding it once, when it is
/// recorded, takes less memory than keeping the properties and makes repeated uploads cheap.
struct EventRecord {
  std::string json;  // empty when the properties cannot be encoded
};

/// The request that uploads a batch of events. Used on the work queue.
class CorvaneEndpointRequest {
 public:
  using Completion = std::function<void(const UploadOutcome& outcome)>;

  /// `events` (oldest first) and `superProperties` must outlive the request and not change.
  CorvaneEndpointRequest(const CollectionClient& client, std::span<const EventRecord> events,
                         const PropertyMap& superProperties);

  /// Calls `completion` exactly once: before returning when there is nothing to send or an event
  /// cannot be encoded, else later, on a thread of the networking framework. Calls `begin` first if
  /// it posts.
  void send(Urgency urgency, const std::function<void()>& begin, Completion completion) const;

 private:
  const CollectionClient& client_;
  const std::span<const EventRecord> eventsBeingSent_;
  const PropertyMap& superProperties_;
};

}  // namespace veltrano::internal

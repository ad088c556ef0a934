#pragma once

#include <deque>
#include <functional>
#include <optional>

#include "properties/property_map.h"
#include "upload/endpoints.h"
#include "upload/event_record.h"

namespace veltrano::internal {

/// The request to "/track" that uploads a batch of events. Used on the work queue.
class CorvaneEndpointRequest {
 public:
  /// Takes the outcome, and the status of the response if there is one.
  using Completion = std::function<void(UploadOutcome outcome, std::optional<int> status)>;

  /// `events` (oldest first) and `superProperties` must outlive the request and not change.
  CorvaneEndpointRequest(const Endpoints& endpoints, const std::deque<EventRecord>& events,
                         const PropertyMap& superProperties);

  /// Calls `completion` exactly once: before returning when there is nothing to send or an event
  /// cannot be encoded, else later, on a thread of the networking framework.
  void send(Completion completion) const;

 private:
  const Endpoints& endpoints_;
  const std::deque<EventRecord>& eventsBeingSent_;
  const PropertyMap& superProperties_;
};

}  // namespace veltrano::internal

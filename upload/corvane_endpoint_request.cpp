#include "upload/corvane_endpoint_request.h"

#include <utility>

#include "platform/platform.h"
#include "tracker/log.h"
#include "upload/request_envelope.h"

namespace veltrano {
namespace {

// None when one of the events cannot be encoded.
std::optional<std::string> batchJSON(const std::deque<EventRecord>& events) {
  std::size_t size = 2;
  for (const EventRecord& event : events) {
    if (!event.json) return std::nullopt;
    size += event.json->size() + 1;
  }
  std::string json;
  json.reserve(size);
  for (const EventRecord& event : events) {
    json += json.empty() ? '[' : ',';
    json += *event.json;
  }
  json += ']';
  return json;
}

bool isDelivered(const std::optional<URLResponse>& response) {
  if (!response || !response->httpStatusCode) return false;
  log("Got response: ", *response->httpStatusCode);
  // A batch that the host calls bad would be no better the next time.
  return *response->httpStatusCode == 200 || *response->httpStatusCode == 400;
}

}  // namespace

CorvaneEndpointRequest::CorvaneEndpointRequest(const std::deque<EventRecord>& events,
                                               const PropertyMap& superProperties)
    : uid_(stringValue(superProperties, "uid").value_or("")),
      eventsBeingSent_(events),
      superProperties_(superProperties) {}

void CorvaneEndpointRequest::send(std::function<void(bool)> completion) const {
  if (eventsBeingSent_.empty()) return completion(false);
  log("Sending to the Corvane Endpoint");
  const auto json = batchJSON(eventsBeingSent_);
  // What cannot be encoded now never can be: it counts as delivered, so that it goes away.
  if (!json) return completion(true);
  platform().urlSession.postData(
      makeEndpointPost("/track", uid_, superProperties_, *json),
      [completion = std::move(completion)](const auto&, const auto& response, const auto&) {
        completion(isDelivered(response));
      });
}

}  // namespace veltrano

#include "upload/corvane_endpoint_request.h"

#include <string_view>
#include <utility>
#include <vector>

namespace veltrano::internal {
namespace {

// The batch as a JSON array, in pieces. None when one of the events cannot be encoded.
std::optional<std::vector<std::string_view>> batchJSON(const std::deque<EventRecord>& events) {
  std::vector<std::string_view> pieces;
  pieces.reserve(2 * events.size() + 1);
  for (const EventRecord& event : events) {
    if (event.json.empty()) return std::nullopt;
    pieces.emplace_back(pieces.empty() ? "[" : ",");
    pieces.emplace_back(event.json);
  }
  pieces.emplace_back("]");
  return pieces;
}

bool isDelivered(const Log& log, const std::optional<URLResponse>& response) {
  if (!response || !response->httpStatusCode) return false;
  log("Got response: ", *response->httpStatusCode);
  // A batch that the host calls bad would be no better the next time.
  return *response->httpStatusCode == 200 || *response->httpStatusCode == 400;
}

}  // namespace

CorvaneEndpointRequest::CorvaneEndpointRequest(const Endpoints& endpoints,
                                               const std::deque<EventRecord>& events,
                                               const PropertyMap& superProperties)
    : endpoints_(endpoints),
      uid_(superProperties.text("uid").value_or("")),
      eventsBeingSent_(events),
      superProperties_(superProperties) {}

void CorvaneEndpointRequest::send(std::function<void(bool)> completion) const {
  if (eventsBeingSent_.empty()) return completion(false);
  endpoints_.log("Sending to the Corvane Endpoint");
  const auto json = batchJSON(eventsBeingSent_);
  // What cannot be encoded now never can be: it counts as delivered, so that it goes away.
  if (!json) return completion(true);
  endpoints_.post("/track", uid_, superProperties_, *json, nullptr,
                  [&log = endpoints_.log, completion = std::move(completion)](
                      const auto&, const auto& response, const auto&) {
                    completion(isDelivered(log, response));
                  });
}

}  // namespace veltrano::internal

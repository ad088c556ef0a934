#include "upload/corvane_endpoint_request.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace veltrano::internal {
namespace {

// The pieces of a JSON array of `events`.
std::vector<std::string_view> batchJSON(std::span<const EventRecord> events) {
  std::vector<std::string_view> pieces;
  pieces.reserve(2 * events.size() + 1);
  for (const EventRecord& event : events) {
    pieces.emplace_back(pieces.empty() ? "[" : ",");
    pieces.emplace_back(event.json);
  }
  pieces.emplace_back("]");
  return pieces;
}

// A refused batch would only be refused again.
UploadOutcome outcomeOf(const std::optional<URLResponse>& response,
                        const std::optional<TransportError>& error) {
  if (error && error->wasPutOff) return {true, &Statistics::uploadsPutOff};
  const auto status = response ? response->httpStatusCode : std::nullopt;
  if (!status) return {true, &Statistics::uploadsFailedInTransport};
  if (status == 200) return {false, &Statistics::uploadsSucceeded, &Statistics::delivered, status};
  if (status == 400)
    return {false, &Statistics::uploadsFailedByStatus, &Statistics::droppedAsRefused, status};
  return {true, &Statistics::uploadsFailedByStatus, nullptr, status};
}

}  // namespace

CorvaneEndpointRequest::CorvaneEndpointRequest(const CollectionClient& client,
                                               std::span<const EventRecord> events,
                                               const PropertyMap& superProperties)
    : client_(client), eventsBeingSent_(events), superProperties_(superProperties) {}

void CorvaneEndpointRequest::send(Urgency urgency, const std::function<void()>& begin,
                                  Completion completion) const {
  if (eventsBeingSent_.empty()) return completion({});
  client_.log("Sending to the Corvane Endpoint");
  if (std::any_of(eventsBeingSent_.begin(), eventsBeingSent_.end(),
                  [](const EventRecord& event) { return event.json.empty(); }))
    return completion({false, nullptr, &Statistics::droppedAsNotEncodable});
  begin();
  client_.post(
      EndpointPath::track, urgency, superProperties_.text("uid").value_or(""), superProperties_,
      batchJSON(eventsBeingSent_), nullptr,
      [completion = std::move(completion)](const auto&, const auto& response, const auto& error) {
        completion(outcomeOf(response, error));
      });
}

}  // namespace veltrano::internal

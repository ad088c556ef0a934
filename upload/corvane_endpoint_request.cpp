#include "upload/corvane_endpoint_request.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace veltrano::internal {
namespace {

// The pieces of a JSON array of `events`.
std::vector<std::string_view> batchJSON(const std::deque<EventRecord>& events) {
  std::vector<std::string_view> pieces;
  pieces.reserve(2 * events.size() + 1);
  for (const EventRecord& event : events) {
    pieces.emplace_back(pieces.empty() ? "[" : ",");
    pieces.emplace_back(event.json);
  }
  pieces.emplace_back("]");
  return pieces;
}

UploadOutcome outcomeOf(std::optional<int> status) {
  if (!status) return UploadOutcome::failedInTransport;
  switch (*status) {
    case 200:
      return UploadOutcome::delivered;
    case 400:
      return UploadOutcome::refused;
    default:
      return UploadOutcome::failedByStatus;
  }
}

}  // namespace

CorvaneEndpointRequest::CorvaneEndpointRequest(const CollectionClient& client,
                                               const std::deque<EventRecord>& events,
                                               const PropertyMap& superProperties)
    : client_(client), eventsBeingSent_(events), superProperties_(superProperties) {}

void CorvaneEndpointRequest::send(Completion completion) const {
  if (eventsBeingSent_.empty()) return completion(UploadOutcome::nothingToSend, std::nullopt);
  client_.log("Sending to the Corvane Endpoint");
  if (std::any_of(eventsBeingSent_.begin(), eventsBeingSent_.end(),
                  [](const EventRecord& event) { return event.json.empty(); }))
    return completion(UploadOutcome::notEncodable, std::nullopt);
  client_.accounting.uploadBegan();
  client_.post(
      "/track", superProperties_.text("uid").value_or(""), superProperties_,
      batchJSON(eventsBeingSent_), nullptr,
      [completion = std::move(completion)](const auto&, const auto& response, const auto&) {
        const auto status = response ? response->httpStatusCode : std::nullopt;
        completion(outcomeOf(status), status);
      });
}

}  // namespace veltrano::internal

#include "test_kit/world_network.h"

#include <strings.h>
#include <algorithm>

namespace veltrano::testing {

using namespace internal;

void WorldNetwork::postData(PostRequest request, URLSessionCallback callback) {
  const EndpointPath path = *endpointPath(request.path());
  bool isPutOff = false;
  {
    const Lock lock(mutex_);
    isPutOff = rests_.of(path).puttingOff(timeline_.now(), request.urgency).has_value();
  }
  const Answer answer = choose_(request, isPutOff);
  const std::uint64_t number = posts_++;
  underWay_.emplace(number, PendingPost{path, request.httpBody.size(), timeline_.now(), isPutOff,
                                        std::move(callback)});
  timeline_.schedule(answer.latency, [this, number, answer] { finish(number, answer); });
}

void WorldNetwork::finish(std::uint64_t number, const Answer& answer) {
  const auto node = underWay_.extract(number);
  if (node.empty()) return;
  const PendingPost& post = node.mapped();
  if (!post.isPutOff) arrive_(post, answer, requestEnded(post, answer));
  if (answer.isTransportError)
    post.callback(std::nullopt, std::nullopt, TransportError{answer.reason, post.isPutOff});
  else
    post.callback(answer.body, URLResponse{answer.status}, std::nullopt);
}

std::optional<Rest> WorldNetwork::requestEnded(const PendingPost& post, const Answer& answer) {
  AttemptResult result;
  result.failedToConnect =
      answer.isTransportError && answer.latency < RequestLimits().attemptTimeout;
  if (!answer.isTransportError) result.httpStatusCode = answer.status;
  const auto header = std::find_if(
      answer.headers.begin(), answer.headers.end(),
      [](const auto& each) { return strcasecmp(each.first.c_str(), "Retry-After") == 0; });
  if (header != answer.headers.end())
    result.retryAfter = parseRetryAfter(header->second, clock_.now());
  const Lock lock(mutex_);
  return rests_.of(post.path).requestEnded(timeline_.now(), result, 1);
}

std::optional<Rest> WorldNetwork::restOf(EndpointPath path) {
  const Lock lock(mutex_);
  return rests_.of(path).restAt(timeline_.now());
}

void WorldNetwork::routeReturned() {
  const Lock lock(mutex_);
  for (Rests& rests : rests_.all) rests.routeReturned();
}

void WorldNetwork::endRests() {
  const Lock lock(mutex_);
  for (Rests& rests : rests_.all) rests.end();
}

void WorldNetwork::fail() {
  while (!isIdle()) finish(underWay_.begin()->first, transportError());
}

void WorldNetwork::drop() {
  // One at a time: destroying a callback might post again.
  while (!underWay_.empty()) underWay_.extract(underWay_.begin());
}

}  // namespace veltrano::testing

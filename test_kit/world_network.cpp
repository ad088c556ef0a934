#include "test_kit/world_network.h"

#include <strings.h>

namespace veltrano::testing {
namespace {

std::optional<std::string> headerOf(const Answer& answer, const char* name) {
  for (const auto& [key, value] : answer.headers)
    if (strcasecmp(key.c_str(), name) == 0) return value;
  return std::nullopt;
}

}  // namespace

void WorldNetwork::postData(internal::PostRequest request, internal::URLSessionCallback callback) {
  const internal::EndpointPath path = *internal::endpointPath(request.path());
  bool isPutOff = false;
  {
    const internal::Lock lock(mutex_);
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
    post.callback(std::nullopt, std::nullopt,
                  internal::TransportError{answer.reason, post.isPutOff});
  else
    post.callback(answer.body, internal::URLResponse{answer.status}, std::nullopt);
}

std::optional<internal::Rest> WorldNetwork::requestEnded(const PendingPost& post,
                                                         const Answer& answer) {
  internal::AttemptResult result;
  result.failedToConnect =
      answer.isTransportError && answer.latency < internal::RequestLimits().attemptTimeout;
  if (!answer.isTransportError) result.httpStatusCode = answer.status;
  if (const auto text = headerOf(answer, "Retry-After"))
    result.retryAfter = internal::parseRetryAfter(*text, clock_.now());
  const internal::Lock lock(mutex_);
  return rests_.of(post.path).requestEnded(timeline_.now(), result, 1);
}

std::optional<internal::Rest> WorldNetwork::restOf(internal::EndpointPath path) {
  const internal::Lock lock(mutex_);
  return rests_.of(path).restAt(timeline_.now());
}

void WorldNetwork::routeReturned() {
  const internal::Lock lock(mutex_);
  rests_.forEach([](internal::Rests& rests) { rests.routeReturned(); });
}

void WorldNetwork::endRests() {
  const internal::Lock lock(mutex_);
  rests_.forEach([](internal::Rests& rests) { rests.end(); });
}

void WorldNetwork::fail() {
  while (!isIdle()) finish(underWay_.begin()->first, transportError());
}

void WorldNetwork::drop() {
  // One at a time: destroying a callback might post again.
  while (!underWay_.empty()) underWay_.extract(underWay_.begin());
}

}  // namespace veltrano::testing

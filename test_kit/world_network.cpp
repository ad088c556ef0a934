#include "test_kit/world_network.h"

#include "platform/host_callback.h"

namespace veltrano::testing {

void WorldNetwork::postData(internal::PostRequest request, internal::URLSessionCallback callback) {
  const Answer answer = choose_(request);
  const std::uint64_t number = posts_++;
  underWay_.emplace(
      number, Post{request.path(), request.httpBody.size(), timeline_.now(), std::move(callback)});
  timeline_.schedule(answer.latency, [this, number, answer] { finish(number, answer); });
}

void WorldNetwork::finish(std::uint64_t number, const Answer& answer) {
  const auto node = underWay_.extract(number);
  if (node.empty()) return;
  const Post& post = node.mapped();
  arrive_(post, answer);
  if (answer.isTransportError)
    post.callback(std::nullopt, std::nullopt, internal::TransportError{"simulated"});
  else
    post.callback(answer.body, internal::URLResponse{answer.status}, std::nullopt);
}

void WorldNetwork::fail() {
  Answer failure;
  failure.isTransportError = true;
  while (!isIdle()) finish(underWay_.begin()->first, failure);
}

void WorldNetwork::drop() {
  // One at a time: destroying a callback might post again.
  while (!underWay_.empty()) underWay_.extract(underWay_.begin());
}

std::optional<std::string> HostsToken::sessionToken() const {
  std::optional<std::string> token;
  if (function) internal::callHost([&] { token = function(); });
  return token;
}

}  // namespace veltrano::testing

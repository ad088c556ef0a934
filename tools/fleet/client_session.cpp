#include "tools/fleet/client_session.h"

#include <algorithm>
#include <utility>

namespace fleet {

using veltrano::internal::AttemptResult;
using veltrano::internal::PostRequest;
using veltrano::internal::TransportError;
using veltrano::internal::URLResponse;
using veltrano::internal::URLSessionCallback;

namespace {

const veltrano::internal::RequestLimits kLimits;

AttemptResult resultOf(const CollectionHost::Reply& reply) {
  AttemptResult result;
  if (!reply.failure) {
    result.httpStatusCode = 200;
  } else if (reply.failure->kind == Failure::Kind::status) {
    result.httpStatusCode = reply.failure->status;
    result.retryAfter = reply.retryAfter;
  } else {
    result.failedToConnect = !reply.failure->connects();
  }
  return result;
}

}  // namespace

void ClientSession::postData(PostRequest request, URLSessionCallback callback) {
  auto post = std::make_shared<Post>();
  post->endpoint = request.baseURL.ends_with("/track") ? kTrack : kHeartbeat;
  post->body = std::move(request.httpBody);
  post->callback = std::move(callback);
  post->deadline = timeline_.now() + kLimits.requestTimeout;
  post->rules.firstBackOff = kLimits.firstBackOff;
  attempt(post);
}

void ClientSession::attempt(const Pointer& post) {
  Line& line = lines_[post->endpoint];
  line.due.push_back(post);
  if (!line.isBusy) attemptNext(line);
}

void ClientSession::attemptNext(Line& line) {
  if (line.due.empty()) return;
  line.isBusy = true;
  const Pointer post = std::move(line.due.front());
  line.due.pop_front();
  post->reply = send(*post);
  timeline_.schedule(post->reply.after, [this, post] { end(post); });
}

CollectionHost::Reply ClientSession::send(const Post& post) {
  const Duration now = timeline_.now();
  const Failure silence{Failure::Kind::silence, 0};
  if (post.deadline <= now) return {silence, Duration::zero()};
  const Duration limit = std::min(kLimits.attemptTimeout, post.deadline - now);
  auto reply = host_.receive(post.endpoint, post.body, now, limit);
  if (reply.failure && !reply.failure->connects())
    return {reply.failure, std::min({reply.after, limit, Duration(kLimits.connectTimeout)})};
  if (reply.after <= limit) return reply;
  return {reply.failure.value_or(silence), limit};
}

void ClientSession::end(const Pointer& post) {
  Line& line = lines_[post->endpoint];
  line.isBusy = false;
  const double random = std::generate_canonical<double, 53>(random_);
  const auto delay = delayBeforeRetry(resultOf(post->reply), post->rules, post->retries,
                                      post->deadline - timeline_.now(), random);
  if (delay) {
    ++post->retries;
    timeline_.schedule(*delay, [this, post] { attempt(post); });
  } else {
    report(*post);
  }
  if (!line.isBusy) attemptNext(line);
}

void ClientSession::report(const Post& post) {
  const auto result = resultOf(post.reply);
  if (!result.httpStatusCode)
    return post.callback(std::nullopt, std::nullopt, TransportError{"simulated"});
  if (!post.reply.failure) host_.accept(post.endpoint, post.body, clock_.now().sinceEpoch);
  post.callback(post.reply.body, URLResponse{result.httpStatusCode}, std::nullopt);
}

}  // namespace fleet

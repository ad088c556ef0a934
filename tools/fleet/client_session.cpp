#include "tools/fleet/client_session.h"

#include <algorithm>
#include <utility>

namespace fleet {

namespace {

const RequestLimits kLimits;

// libcurl does not use a connection again that has been idle for longer.
constexpr Duration kMaxIdle = std::chrono::seconds(118);

AttemptResult resultOf(const CollectionHost::Reply& reply) {
  AttemptResult result;
  if (!reply.failure) {
    result.httpStatusCode = 200;
  } else if (reply.failure->effect == Failure::Effect::status) {
    result.httpStatusCode = reply.failure->status;
    result.retryAfter = reply.retryAfter;
  } else {
    result.failedToConnect = !reply.failure->connects();
  }
  return result;
}

}  // namespace

void ClientSession::postData(PostRequest request, URLSessionCallback callback) {
  if (hasEnded_) return;
  auto post = std::make_shared<PendingPost>();
  post->path = *endpointPath(request.path());
  post->urgency = request.urgency;
  post->body = std::move(request.httpBody);
  post->callback = std::move(callback);
  post->deadline = timeline_.now() + kLimits.requestTimeout;
  post->rules.firstBackOff = kLimits.firstBackOff;
  attempt(post);
}

void ClientSession::attempt(const Pointer& post) {
  Line& line = lines_[indexOf(post->path)];
  line.due.push_back(post);
  if (!line.isBusy) attemptNext(line);
}

void ClientSession::attemptNext(Line& line) {
  if (line.due.empty()) return;
  line.isBusy = true;
  const Pointer post = std::move(line.due.front());
  line.due.pop_front();
  post->wasPutOff =
      post->retries == 0 && rests_.of(post->path).puttingOff(timeline_.now(), post->urgency);
  post->reply = post->wasPutOff ? CollectionHost::Reply() : send(*post);
  timeline_.schedule(post->reply.after, [this, post] { end(post); });
}

CollectionHost::Reply ClientSession::send(PendingPost& post) {
  const Duration now = timeline_.now();
  const Failure silence{Failure::Effect::silence, 0};
  if (post.deadline <= now) return {silence, Duration::zero()};
  const Duration limit = std::min(kLimits.attemptTimeout, post.deadline - now);
  const auto idle = takeIdle();
  const Connection connection = idle ? *idle : Connection{now, now, host_.drawsFailingServer()};
  auto reply = host_.receive(post.path, post.body, now, limit, connection.isToFailingServer);
  if (reply.failure && !reply.failure->connects())
    return {reply.failure, std::min({reply.after, limit, Duration(kLimits.connectTimeout)})};
  if (!idle) host_.opened();
  post.connection = connection;
  if (reply.after <= limit) return reply;
  return {reply.failure.value_or(silence), limit};
}

// The connection that was used last, unless it has been idle for too long.
std::optional<ClientSession::Connection> ClientSession::takeIdle() {
  if (idle_.empty()) return std::nullopt;
  const Connection last = idle_.back();
  idle_.pop_back();
  if (last.usedAt + std::min(kMaxIdle, host_.keepAlive()) > timeline_.now()) return last;
  close(last);
  closeConnections();  // idle for even longer
  return std::nullopt;
}

void ClientSession::close(const Connection& connection) {
  host_.closed(connection.openedAt,
               std::min(connection.usedAt + host_.keepAlive(), timeline_.now()));
}

void ClientSession::closeConnections() {
  for (const Connection& each : std::exchange(idle_, {})) close(each);
}

void ClientSession::silence() {
  hasEnded_ = true;
  closeConnections();
}

void ClientSession::end(const Pointer& post) {
  if (auto connection = std::exchange(post->connection, std::nullopt)) {
    connection->usedAt = timeline_.now();
    const bool isAnswered = resultOf(post->reply).httpStatusCode.has_value();
    isAnswered && !hasEnded_ ? idle_.push_back(*connection) : close(*connection);
  }
  if (hasEnded_) return;
  Line& line = lines_[indexOf(post->path)];
  line.isBusy = false;
  const auto delay = post->wasPutOff ? std::nullopt : delayBeforeRetry(*post);
  if (delay) {
    ++post->retries;
    timeline_.schedule(*delay, [this, post] { attempt(post); });
  } else {
    report(*post);
  }
  if (!line.isBusy) attemptNext(line);
}

// None if this was the last attempt, which may begin a rest.
std::optional<Duration> ClientSession::delayBeforeRetry(const PendingPost& post) {
  const Duration now = timeline_.now();
  const auto result = resultOf(post.reply);
  Rests& rests = rests_.of(post.path);
  const double random = std::generate_canonical<double, 53>(random_);
  const auto delay = rests.mayRetry() ? internal::delayBeforeRetry(result, post.rules, post.retries,
                                                                   post.deadline - now, random)
                                      : std::nullopt;
  if (!delay) rests.requestEnded(now, result, std::generate_canonical<double, 53>(random_));
  return delay;
}

void ClientSession::report(const PendingPost& post) {
  const auto result = resultOf(post.reply);
  if (post.wasPutOff || !result.httpStatusCode)
    return post.callback(std::nullopt, std::nullopt, TransportError{"simulated", post.wasPutOff});
  if (!post.reply.failure) host_.accept(post.path, post.body, clock_.now().sinceEpoch);
  post.callback(post.reply.body, URLResponse{result.httpStatusCode}, std::nullopt);
}

}  // namespace fleet

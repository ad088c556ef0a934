#include "tools/fleet/collection_host.h"

#include <rapidjson/document.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "platform/simulated/trace_text.h"

namespace fleet {
namespace {

constexpr Duration kLoadSpan = std::chrono::seconds(10);
// Bytes of usual heads; a session token would add its own.
constexpr std::size_t kRequestHead = 160, kAnswerHead = 150;

}  // namespace

void CollectionHost::noteLoad(Duration now) {
  if (now - loadSince_ >= kLoadSpan) {
    load_ = static_cast<double>(loadCount_) / seconds(now - loadSince_);
    loadCount_ = 0;
    loadSince_ = now;
  }
  ++loadCount_;
}

CollectionHost::Reply CollectionHost::receive(EndpointPath path, const std::string& body,
                                              Duration now, Duration patience,
                                              bool isToFailingServer) {
  noteLoad(now);
  const auto isAway = [now](const Outage& o) { return o.from <= now && now < o.to; };
  const bool isOut = std::any_of(options_.outages.begin(), options_.outages.end(), isAway) ||
                     isToFailingServer || random_.isAmong(options_.failingRequests);
  busyUntil_ = std::max(busyUntil_, now);
  const Duration wait = busyUntil_ - now;
  std::optional<Failure> failure;
  if (isOut)
    failure = options_.outage;
  else if (wait > options_.longestWait)
    failure = options_.overload;
  const bool connects = !failure || failure->connects();
  Reply reply =
      failure ? failed(*failure) : Reply{{}, wait + drawLatency(), {}, bodyOfAnswer(path)};
  const bool isAnswered = !failure || failure->effect == Failure::Effect::status;
  measurements_.received(path, now,
                         {.received = 1,
                          .accepted = !failure && reply.after <= patience,
                          .bodyBytes = connects ? body.size() : 0,
                          .headBytes = connects ? kRequestHead : 0,
                          .answerBytes = isAnswered ? kAnswerHead + reply.body.size() : 0});
  if (!failure) busyUntil_ += durationFromSeconds(1 / options_.capacity);
  return reply;
}

// At least the latency; what is beyond it is exponentially distributed.
Duration CollectionHost::drawLatency() {
  if (!options_.latency99) return options_.latency;
  const double beyond = seconds(*options_.latency99 - options_.latency);
  return options_.latency + random_.exponential(beyond / std::log(100));
}

CollectionHost::Reply CollectionHost::failed(const Failure& failure) const {
  const bool isAnswered = failure.effect == Failure::Effect::status;
  const bool isRefused = failure.effect == Failure::Effect::refused;
  return {failure, isAnswered || isRefused ? options_.latency : Duration::max(),
          options_.retryAfter};
}

std::string CollectionHost::bodyOfAnswer(EndpointPath path) const {
  static_assert(kEndpointPathCount == 2);
  if (path == EndpointPath::track) return "";
  if (!options_.backOff) return "{}";
  const bool isBusy = load_ >= options_.backOffAbove * options_.capacity;
  const double asked = isBusy ? seconds(*options_.backOff) : 20;
  return "{\"back_off_seconds\":" + std::to_string(asked) + "}";
}

void CollectionHost::accept(EndpointPath path, const std::string& body, Duration wallTime) {
  if (path != EndpointPath::track) return;
  std::string json = jsonInBody(body);
  rapidjson::Document batch;
  if (batch.ParseInsitu(json.data()).HasParseError() || !batch.IsArray())
    throw std::runtime_error("a batch that is not JSON");
  for (const auto& event : batch.GetArray()) {
    ++events_;
    heartbeatFailures_ += event["event"] == "Heartbeat Failed";
    const std::chrono::milliseconds time(event["properties"]["time"].GetUint64());
    measurements_.delivered(wallTime - time);
  }
}

}  // namespace fleet

#include "tools/fleet/collection_host.h"

#include <rapidjson/reader.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include "encoding/base64.h"

namespace fleet {
namespace {

constexpr Duration kLoadSpan = std::chrono::seconds(10);
constexpr std::string_view kBodyStart = "data=";

std::string decoded(std::string_view body) {
  if (!body.starts_with(kBodyStart)) throw std::runtime_error("a body without data");
  body.remove_prefix(kBodyStart.size());
  auto bytes = veltrano::internal::decodedBase64(body);
  if (!bytes) throw std::runtime_error("a body that is not Base64");
  return *std::move(bytes);
}

// Reports the name and the time of each event in a batch.
template <class OnName, class OnTime>
class BatchHandler
    : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, BatchHandler<OnName, OnTime>> {
 public:
  BatchHandler(const OnName& onName, const OnTime& onTime) : onName_(onName), onTime_(onTime) {}

  bool StartArray() { return open(); }
  bool StartObject() { return open(); }
  bool EndArray(rapidjson::SizeType) { return close(); }
  bool EndObject(rapidjson::SizeType) { return close(); }
  bool Key(const char* text, rapidjson::SizeType length, bool) {
    key_ = {text, length};
    return true;
  }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    if (depth_ == kEventDepth && key_ == "event") onName_(std::string_view(text, length));
    return true;
  }
  bool Uint64(std::uint64_t number) {
    if (depth_ == kEventDepth + 1 && key_ == "time") onTime_(std::chrono::milliseconds(number));
    return true;
  }

 private:
  static constexpr int kEventDepth = 2;

  bool open() {
    ++depth_;
    return true;
  }
  bool close() {
    --depth_;
    return true;
  }

  const OnName& onName_;
  const OnTime& onTime_;
  std::string_view key_;
  int depth_ = 0;
};

}  // namespace

void CollectionHost::noteLoad(Duration now) {
  if (now - loadSince_ >= kLoadSpan) {
    const auto span = std::chrono::duration<double>(now - loadSince_).count();
    load_ = static_cast<double>(loadCount_) / span;
    loadCount_ = 0;
    loadSince_ = now;
  }
  ++loadCount_;
}

CollectionHost::Reply CollectionHost::receive(EndpointPath path, const std::string& body,
                                              Duration now, Duration patience) {
  noteLoad(now);
  const auto isAway = [now](const Outage& o) { return o.from <= now && now < o.to; };
  const bool isOut = std::any_of(options_.outages.begin(), options_.outages.end(), isAway);
  busyUntil_ = std::max(busyUntil_, now);
  const Duration wait = busyUntil_ - now;
  std::optional<Failure> failure;
  if (isOut)
    failure = options_.outage;
  else if (wait > options_.longestWait)
    failure = options_.overload;
  const bool connects = !failure || failure->connects();
  const bool isAccepted = !failure && wait + options_.latency <= patience;
  measurements_.received(path, now, connects ? body.size() : 0, isAccepted);
  if (failure) return failed(*failure);
  busyUntil_ += veltrano::internal::durationFromSeconds(1 / options_.capacity);
  return {{}, wait + options_.latency, {}, bodyOfAnswer(path)};
}

CollectionHost::Reply CollectionHost::failed(const Failure& failure) const {
  const bool isAnswered = failure.kind == Failure::Kind::status;
  const bool isRefused = failure.kind == Failure::Kind::refused;
  return {failure, isAnswered || isRefused ? options_.latency : Duration::max(),
          options_.retryAfter};
}

std::string CollectionHost::bodyOfAnswer(EndpointPath path) const {
  switch (path) {
    case EndpointPath::track:
      return "";
    case EndpointPath::heartbeat:
      return heartbeatAnswer();
  }
  return "";
}

std::string CollectionHost::heartbeatAnswer() const {
  if (!options_.backOff) return "{}";
  const bool isBusy = load_ >= options_.backOffAbove * options_.capacity;
  const auto seconds = isBusy ? std::chrono::duration<double>(*options_.backOff).count() : 20;
  return "{\"back_off_seconds\":" + std::to_string(seconds) + "}";
}

void CollectionHost::accept(EndpointPath path, const std::string& body, Duration wallTime) {
  if (path != EndpointPath::track) return;
  std::string json = decoded(body);
  const auto onName = [this](std::string_view name) {
    ++events_;
    heartbeatFailures_ += name == "Heartbeat Failed";
  };
  const auto onTime = [&](Duration time) { measurements_.delivered(wallTime - time); };
  BatchHandler handler(onName, onTime);
  rapidjson::InsituStringStream stream(json.data());
  if (!rapidjson::Reader().Parse<rapidjson::kParseInsituFlag>(stream, handler))
    throw std::runtime_error("a batch that is not JSON");
}

}  // namespace fleet

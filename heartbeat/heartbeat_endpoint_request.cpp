#include "heartbeat/heartbeat_endpoint_request.h"

#include <algorithm>
#include <utility>

#include "encoding/json_reader.h"
#include "encoding/json_writer.h"
#include "encoding/utf8.h"
#include "heartbeat/heartbeat_interval.h"
#include "platform/host_callback.h"

namespace veltrano::internal {
namespace {

std::string bodyJSON(const CollectionClient& client, const HeartbeatFacts& facts,
                     const std::string& uid, const std::string& sessionID, double sessionDuration) {
  const Platform& platform = client.platform;
  JSONWriter writer;
  const auto writeText = [&](std::string_view key, std::string_view text) {
    writer.key(key);
    writer.string(text);
  };
  writer.startObject();
  writeText("event", "heartbeat");
  writer.key("properties");
  writer.startObject();
  writeText("app_id", facts.superProperties->text("app_id").value_or(""));
  writeText("app_version", client.defaultProperties.publisherVersion());
  writeText("os_version", wellFormedUTF8(platform.device->systemVersion()));
  writeText("manufacturer", "Apple");
  writeText("uid", uid);
  writeText("session_id", sessionID);
  writer.key("time");
  writer.integer(wholeMilliseconds(platform.wallClock->now().sinceEpoch));
  writer.key("duration");
  // Via whole microseconds, the clock's resolution: as a double, the seconds may lie just below the
  // millisecond that they mean.
  writer.integer(wholeMilliseconds(durationFromSeconds(sessionDuration)));
  writeText("screen_orientation", facts.screenOrientation);
  writeText("device_orientation", facts.deviceOrientation);
  writer.endObject();
  writer.endObject();
  return std::string(writer.text());
}

// Returns whether the collection host accepted the heartbeat, and stores the back-off that it may
// ask for.
bool takeAnswer(const CollectionClient& client, const std::optional<std::string>& data,
                const std::optional<URLResponse>& response,
                const std::optional<TransportError>& error) {
  if (error || !response || !response->httpStatusCode) return false;
  const int status = *response->httpStatusCode;
  client.log("Heartbeat response code: ", status);
  if (status < 200 || status > 299) return false;
  dropExceptions([&] {
    if (const auto backOff = data ? VLTrackingEvent::fromJSON(*data).backOffSeconds : std::nullopt)
      setHeartbeatInterval(*client.platform.userDefaults, *backOff);
  });
  return true;
}

// Visible ASCII only: any other character could inject headers or truncate the token.
bool isValidHeaderToken(const std::string& token) {
  return !token.empty() &&
         std::all_of(token.begin(), token.end(), [](char c) { return c > 0x20 && c < 0x7F; });
}

// Adds "Authorization: Bearer" with the user's session token, if there is one that a header can
// carry.
class ZKAuthInterceptor final : public ZKInterceptor {
 public:
  ZKAuthInterceptor(std::function<bool(const URLRequest&)> shouldAuthenticate,
                    const SessionTokenProvider& sessionTokenProvider, const UserSessionManager&)
      : shouldAuthenticate_(std::move(shouldAuthenticate)),
        sessionTokenProvider_(sessionTokenProvider) {}

  void intercept(URLRequest& request) const override {
    if (!shouldAuthenticate_(request)) return;
    const auto token = sessionTokenProvider_.sessionToken();
    if (token && isValidHeaderToken(*token)) request.headers["Authorization"] = "Bearer " + *token;
  }

 private:
  const std::function<bool(const URLRequest&)> shouldAuthenticate_;
  const SessionTokenProvider& sessionTokenProvider_;
};

}  // namespace

HeartbeatEndpointRequest::HeartbeatEndpointRequest(const CollectionClient& client,
                                                   const HeartbeatFacts& facts, std::string uid,
                                                   const std::string& sessionID,
                                                   double sessionDuration)
    : client_(client),
      uid_(std::move(uid)),
      superProperties_(facts.superProperties),
      body_(bodyJSON(client, facts, uid_, sessionID, sessionDuration)) {}

void HeartbeatEndpointRequest::send(std::function<void(bool)> completion) const {
  client_.log("Sending to the Heartbeat Endpoint");
  const std::string_view json[] = {body_};
  const Platform& platform = client_.platform;
  auto interceptor = std::make_shared<ZKAuthInterceptor>([](const URLRequest&) { return true; },
                                                         *platform.sessionTokenProvider,
                                                         *platform.userSessionManager);
  client_.post(EndpointPath::heartbeat, Urgency::ordinary, uid_, *superProperties_, json,
               std::move(interceptor),
               [&client = client_, completion = std::move(completion)](
                   const auto& data, const auto& response, const auto& error) {
                 const bool wasAccepted = takeAnswer(client, data, response, error);
                 if (error && error->wasPutOff)
                   client.accounting.heartbeatPutOff();
                 else if (!wasAccepted)
                   client.accounting.heartbeatFailed();
                 completion(wasAccepted);
               });
}

VLTrackingEvent VLTrackingEvent::fromJSON(std::string_view text) {
  return {.backOffSeconds = numberInJSONObject(text, "back_off_seconds")};
}

}  // namespace veltrano::internal

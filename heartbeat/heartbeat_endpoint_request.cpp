#include "heartbeat/heartbeat_endpoint_request.h"

#include <algorithm>
#include <utility>

#include "encoding/json_writer.h"
#include "encoding/utf8.h"
#include "heartbeat/heartbeat_interval.h"
#include "heartbeat/vl_tracking_event.h"
#include "platform/platform.h"
#include "properties/default_properties.h"
#include "tracker/log.h"
#include "tracker/tracker.h"
#include "upload/request_envelope.h"

namespace veltrano {
namespace {

// Whole milliseconds; the fraction is dropped.
std::int64_t milliseconds(Duration duration) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
}

std::string bodyJSON(const std::string& uid, const std::string& sessionID, double sessionDuration,
                     const PropertyMap& superProperties) {
  const Tracker& tracker = Tracker::shared();
  JSONWriter writer;
  const auto writeText = [&](std::string_view key, std::string_view text) {
    writer.key(key);
    writer.string(text);
  };
  writer.startObject();
  writeText("event", "heartbeat");
  writer.key("properties");
  writer.startObject();
  writeText("app_id", stringValue(superProperties, "app_id").value_or(""));
  writeText("app_version", DefaultProperties::publisherVersion());
  writeText("os_version", wellFormedUTF8(platform().device->systemVersion()));
  writeText("manufacturer", "Apple");
  writeText("uid", uid);
  writeText("session_id", sessionID);
  writer.key("time");
  writer.integer(milliseconds(platform().wallClock->now().sinceEpoch));
  writer.key("duration");
  // Through whole microseconds, in which the clock counts: seconds as a double may lie just below
  // the millisecond that they stand for.
  writer.integer(milliseconds(durationFromSeconds(sessionDuration)));
  writeText("screen_orientation", tracker.getScreenOrientation());
  writeText("device_orientation", tracker.getDeviceOrientation());
  writer.endObject();
  writer.endObject();
  return std::string(writer.text());
}

// Whether the host accepted the heartbeat; takes up the back-off that it may ask for.
bool takeAnswer(const std::optional<std::string>& data, const std::optional<URLResponse>& response,
                const std::optional<TransportError>& error) {
  if (error || !response || !response->httpStatusCode) return false;
  const int status = *response->httpStatusCode;
  log("Heartbeat response code: ", status);
  if (status < 200 || status > 299) return false;
  if (const auto backOff = data ? VLTrackingEvent::fromJSON(*data).backOffSeconds : std::nullopt)
    setHeartbeatInterval(*platform().userDefaults, *backOff);
  return true;
}

// Visible ASCII only: a token with anything else could forge headers or be cut short.
bool canStandInHeader(const std::string& token) {
  return !token.empty() &&
         std::all_of(token.begin(), token.end(), [](char c) { return c > 0x20 && c < 0x7F; });
}

// Authenticates requests with the token of the user's session, as "Authorization: Bearer". Leaves
// them as they are when there is no token that a header can carry.
class ZKAuthInterceptor final : public ZKInterceptor {
 public:
  ZKAuthInterceptor(std::function<bool(const URLRequest&)> shouldAuthenticate,
                    const SessionTokenProvider& sessionTokenProvider, const UserSessionManager&)
      : shouldAuthenticate_(std::move(shouldAuthenticate)),
        sessionTokenProvider_(sessionTokenProvider) {}

  void intercept(URLRequest& request) const override {
    if (!shouldAuthenticate_(request)) return;
    const auto token = sessionTokenProvider_.sessionToken();
    if (token && canStandInHeader(*token)) request.headers["Authorization"] = "Bearer " + *token;
  }

 private:
  const std::function<bool(const URLRequest&)> shouldAuthenticate_;
  const SessionTokenProvider& sessionTokenProvider_;
};

}  // namespace

HeartbeatEndpointRequest::HeartbeatEndpointRequest(std::string uid, const std::string& sessionID,
                                                   double sessionDuration)
    : uid_(std::move(uid)),
      superProperties_(Tracker::shared().superProperties()),
      body_(bodyJSON(uid_, sessionID, sessionDuration, *superProperties_)) {}

void HeartbeatEndpointRequest::send(std::function<void(bool)> completion) const {
  log("Sending to the Heartbeat Endpoint");
  const std::string_view json[] = {body_};
  PostRequest request = makeEndpointPost("/heartbeat", uid_, *superProperties_, json);
  request.interceptor = std::make_shared<ZKAuthInterceptor>([](const URLRequest&) { return true; },
                                                            *platform().sessionTokenProvider,
                                                            *platform().userSessionManager);
  platform().urlSession->postData(std::move(request),
                                  [completion = std::move(completion)](
                                      const auto& data, const auto& response, const auto& error) {
                                    const bool wasAccepted = takeAnswer(data, response, error);
                                    if (!wasAccepted)
                                      Tracker::shared().track("Heartbeat Failed", {}, nullptr);
                                    completion(wasAccepted);
                                  });
}

}  // namespace veltrano

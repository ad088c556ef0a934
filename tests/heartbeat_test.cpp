// The parts of heartbeats. What is sent when, the scenarios show.
#include <gtest/gtest.h>

#include <new>

#include "heartbeat/heartbeat_endpoint_request.h"
#include "heartbeat/session.h"
#include "tests/support/simulation.h"

namespace veltrano::internal {
namespace {

TEST(Session, EndsWhenUsesAreTooFarApart) {
  const auto at = [](double seconds) { return WallTime{durationFromSeconds(seconds)}; };
  struct Use {
    double time;
    std::string id;
    double duration;
  };
  const Use uses[] = {
      {1000, "0", 0},          {1020, "0", 20},       {1200, "0", 200},       {1380.000001, "3", 0},
      {1560.000001, "3", 180}, {1380.000001, "3", 0}, {1300, "3", 80.000001}, {1119.999999, "7", 0},
  };
  Session session;
  for (std::size_t i = 0; i < std::size(uses); ++i) {
    session.use(at(uses[i].time), std::to_string(i));
    EXPECT_EQ(session.id(), uses[i].id) << i;
    EXPECT_EQ(session.durationAt(at(uses[i].time)), durationFromSeconds(uses[i].duration)) << i;
  }
}

TEST(BackOff, OnlyNumbersOfAnObjectCount) {
  const auto backOff = [](std::string_view body) {
    return VLTrackingEvent::fromJSON(body).backOffSeconds;
  };
  EXPECT_EQ(backOff(R"({"back_off_seconds":90})"), 90);
  EXPECT_EQ(backOff(R"({"a":{"back_off_seconds":1},"back_off_seconds":0.25,"b":[{}]})"), 0.25);
  EXPECT_EQ(backOff(R"( {"back_off_seconds":18446744073709551615} )"), 18446744073709551615.0);
  EXPECT_EQ(backOff(R"({"back_off_seconds":1,"back_off_seconds":7})"), 7);
  const std::string deep(100'000, '[');
  for (const std::string& body :
       {std::string(), std::string("x"), std::string("5"), std::string("null"),
        std::string(R"("back_off_seconds")"), std::string(R"(["back_off_seconds",5])"),
        std::string(R"({"back_off_seconds":"5"})"), std::string(R"({"back_off_seconds":true})"),
        std::string(R"({"back_off_seconds":null})"), std::string(R"({"back_off_seconds":1e999})"),
        std::string(R"({"back_off_seconds":[5]})"), std::string(R"({"back_off_seconds":5)"),
        std::string(R"({"back_off_seconds":5}x)"), std::string("{\"back_off_seconds\":5}\0", 23),
        std::string(R"({"back_off_seconds":1,"back_off_seconds":{}})"),
        std::string(R"({"a":{"back_off_seconds":5}})"), deep, R"({"back_off_seconds":)" + deep,
        std::string(1 << 20, 'x')})
    EXPECT_EQ(backOff(body), std::nullopt) << body.substr(0, 40);
}

struct Token final : SessionTokenProvider {
  std::optional<std::string> sessionToken() const override { return text; }
  std::optional<std::string> text;
};

TEST(Heartbeat, ATokenIsSentIfAHeaderCanCarryIt) {
  SimulatedPlatform platform;
  Platform services = platform.services();
  Token token;
  services.sessionTokenProvider = &token;
  Library library(services);
  std::shared_ptr<const ZKInterceptor> interceptor;
  platform.network.onPost = [&](const PostRequest& post) { interceptor = post.interceptor; };
  library.tracker().setUserId("u");
  platform.timeline.runUntil(std::chrono::seconds(2));
  ASSERT_NE(interceptor, nullptr);
  for (const char* const good : {"t", "!~"}) {
    token.text = good;
    URLRequest request;
    interceptor->intercept(request);
    EXPECT_EQ(request.headers.at("Authorization"), "Bearer " + *token.text);
  }
  for (const char* const bad : {"", "a b", "a\x7F", "a\xC3\xA9", "a\r\nEvil: 1"}) {
    token.text = bad;
    URLRequest request;
    interceptor->intercept(request);
    EXPECT_TRUE(request.headers.empty()) << bad;
  }
}

// Has no memory for the first heartbeat, and cuts the answer to the second off.
struct FailingNetwork final : ZKURLSessionManager {
  void postData(PostRequest request, URLSessionCallback callback) override {
    if (request.path() != "/heartbeat") return;
    if (++heartbeats == 1) throw std::bad_alloc();
    callback(std::nullopt, URLResponse{200}, TransportError{"cut off"});
  }
  int heartbeats = 0;
};

TEST(Heartbeat, AnyFailureIsRecorded) {
  SimulatedPlatform platform;
  FailingNetwork network;
  Platform services = platform.services();
  services.urlSession = &network;
  Library library(services);
  library.tracker().setUserId("u");
  platform.timeline.runUntil(std::chrono::seconds(2));
  EXPECT_EQ(library.accounting().statistics().recorded, 1U);
  platform.timeline.runUntil(std::chrono::seconds(22));
  EXPECT_EQ(network.heartbeats, 2);
  EXPECT_EQ(library.accounting().statistics().recorded, 2U);
}

}  // namespace
}  // namespace veltrano::internal

// Heartbeats and sessions.
#include <gtest/gtest.h>

#include <limits>

#include "heartbeat/heartbeat_endpoint_request.h"
#include "heartbeat/session.h"
#include "tests/support/simulation.h"

namespace veltrano::internal {
namespace {

using Messages = std::vector<std::string>;
using Times = std::vector<double>;

class Heartbeat : public testing::Test {
 protected:
  void post(std::string_view name) {
    simulation.platform.notificationCenter.post(std::string(name));
  }

  void goToBackground() {
    simulation.platform.device.applicationState = ApplicationState::background;
    post(kApplicationDidEnterBackground);
  }

  void becomeActive() {
    simulation.platform.device.applicationState = ApplicationState::active;
    post(kApplicationWillEnterForeground);
    post(kApplicationDidBecomeActive);
  }

  std::vector<const SentPost*> beats() const {
    std::vector<const SentPost*> found;
    for (const SentPost& sent : simulation.posts)
      if (sent.request.baseURL == "https://collect.veltrano.example/heartbeat")
        found.push_back(&sent);
    return found;
  }

  Times beatTimes() const {
    Times times;
    for (const SentPost* beat : beats()) times.push_back(beat->at);
    return times;
  }

  std::string sessionOf(std::size_t beat) const {
    return text(beats().at(beat)->body["properties"], "session_id");
  }

  std::string durationOf(std::size_t beat) const {
    return text(beats().at(beat)->body["properties"], "duration");
  }

  double storedInterval() const {
    return simulation.platform.defaults.doubleForKey("kelvora_heartbeat_interval");
  }

  Simulation simulation;
  Veltrano& tracker = Veltrano::shared();
};

TEST_F(Heartbeat, ReportsTheUserOfTheFirstId) {
  simulation.platform.bundles.mainInfo = HostMap{{"CFBundleShortVersionString", "2.3"}};
  simulation.platform.device.screenOrientation = 4;
  simulation.platform.device.deviceOrientation = 2;
  tracker.setUserId("");
  simulation.runUntil(5);
  EXPECT_TRUE(beats().empty());
  tracker.setUserId("u1");
  tracker.setUserId("u2");
  tracker.setAppId("app");
  tracker.setLibVersion("7");
  simulation.runUntil(47);
  EXPECT_EQ(beatTimes(), (Times{6, 26, 46}));

  const SentPost& beat = *beats()[1];
  EXPECT_EQ(beat.request.qsParameters.at("uid"), "u1");
  EXPECT_EQ(beat.request.headerParameters.at("lib_version"), "ios_7");
  EXPECT_EQ(beat.request.headerParameters.at("publisher_version"), "ios_2.3");
  EXPECT_NE(beat.request.interceptor, nullptr);
  EXPECT_EQ(text(beat.body, "event"), "\"heartbeat\"");
  const auto& properties = beat.body["properties"];
  const std::pair<std::string, std::string> expected[] = {
      {"app_id", "\"app\""},
      {"app_version", "\"2.3\""},
      {"os_version", "\"17.0\""},
      {"manufacturer", "\"Apple\""},
      {"uid", "\"u1\""},
      {"time", "1700000026000"},
      {"duration", "20000"},
      {"screen_orientation", "\"landscape\""},
      {"device_orientation", "\"portraitUpsideDown\""},
  };
  for (const auto& [key, value] : expected) EXPECT_EQ(text(properties, key), value);
  EXPECT_EQ(properties.MemberCount(), 10U);
  const std::string id = properties["session_id"].GetString();
  ASSERT_EQ(id.size(), 36U);
  EXPECT_EQ(id.find_first_not_of("0123456789ABCDEF-"), std::string::npos);
  EXPECT_EQ(id[14], '4');
  EXPECT_EQ(sessionOf(0), sessionOf(2));
  EXPECT_EQ(durationOf(0), "0");
}

TEST_F(Heartbeat, FollowsTheApplication) {
  tracker.setUserId("u");
  simulation.runUntil(2);
  goToBackground();
  simulation.runUntil(150);
  becomeActive();
  post(kApplicationDidBecomeActive);
  simulation.runUntil(160);
  EXPECT_EQ(beatTimes(), (Times{1, 151}));
  EXPECT_EQ(sessionOf(0), sessionOf(1));
  EXPECT_EQ(durationOf(1), "150000");

  // When it finds the application inactive, it pauses until the next activation.
  simulation.platform.device.applicationState = ApplicationState::inactive;
  simulation.runUntil(400);
  EXPECT_EQ(beats().size(), 2U);
  becomeActive();
  simulation.runUntil(402);
  EXPECT_EQ(beatTimes(), (Times{1, 151, 401}));
  EXPECT_NE(sessionOf(1), sessionOf(2));
  EXPECT_EQ(durationOf(2), "0");
}

TEST_F(Heartbeat, WithoutARunLoopWaitsForTheNextActivation) {
  simulation.platform.timers.threadRunsRunLoop = false;
  tracker.setUserId("u");
  simulation.platform.timers.threadRunsRunLoop = true;
  post(kApplicationDidBecomeActive);
  simulation.runUntil(60);
  EXPECT_TRUE(beats().empty());
  goToBackground();
  becomeActive();
  simulation.runUntil(62);
  EXPECT_EQ(beatTimes(), (Times{61}));
}

TEST_F(Heartbeat, ABackOffCountsFromTheHeartbeatAfterTheNext) {
  simulation.answer("/heartbeat", {.body = R"({"other":1,"back_off_seconds":90.5})"});
  tracker.setUserId("u");
  simulation.runUntil(2);
  EXPECT_EQ(storedInterval(), 90.5);
  int writes = 0;
  simulation.platform.defaults.onWrite = [&](const auto&, double) { ++writes; };
  simulation.runUntil(203);
  EXPECT_EQ(beatTimes(), (Times{1, 21, 111.5, 202}));
  EXPECT_EQ(writes, 0);

  simulation.answer("/heartbeat", {.body = R"({"back_off_seconds":-5})"});
  simulation.runUntil(400);
  EXPECT_EQ(storedInterval(), -5);
  EXPECT_EQ(beatTimes(), (Times{1, 21, 111.5, 202, 292.5, 383}));
  simulation.runUntil(404);
  EXPECT_EQ(beatTimes().back(), 403);
}

TEST_F(Heartbeat, AHugeIntervalNeverFires) {
  for (const double interval : {1e12, 1e300, std::numeric_limits<double>::infinity()}) {
    simulation.platform.defaults.values["kelvora_heartbeat_interval"] = interval;
    tracker.setUserId("u");
    goToBackground();
    becomeActive();
    const std::size_t before = beats().size();
    simulation.runUntil(simulation.now() + 1e5);
    EXPECT_EQ(beats().size(), before + 1);
  }
}

TEST_F(Heartbeat, FailuresAreTrackedAsEvents) {
  struct Case {
    SimulatedAnswer answer;
    std::string statusLine;
    bool hasFailed;
  };
  using Kind = SimulatedAnswer::Kind;
  const auto answer = [](Kind kind, int status, std::optional<std::string> body = std::nullopt) {
    return SimulatedAnswer{.kind = kind, .status = status, .body = std::move(body)};
  };
  const std::string backOff = R"({"back_off_seconds":7})";
  const std::vector<Case> cases{
      {answer(Kind::http, 204), "Heartbeat response code: 204", false},
      {answer(Kind::http, 299, "not JSON"), "Heartbeat response code: 299", false},
      {answer(Kind::http, 200, "[1]"), "Heartbeat response code: 200", false},
      {answer(Kind::http, 300), "Heartbeat response code: 300", true},
      {answer(Kind::http, 500, backOff), "Heartbeat response code: 500", true},
      {answer(Kind::transportError, 0), "", true},
      {answer(Kind::notHTTP, 0, backOff), "", true},
  };
  tracker.setUserId("u");
  simulation.runUntil(0.9);
  Veltrano::isLoggerEnabled = true;
  for (const Case& it : cases) {
    simulation.takeMessages();
    simulation.answer("/heartbeat", it.answer);
    simulation.runUntil(simulation.now() + 0.2);
    Messages expected{"Sending to the Heartbeat Endpoint"};
    if (!it.statusLine.empty()) expected.push_back(it.statusLine);
    if (it.hasFailed) expected.push_back("Adding event of Heartbeat Failed to current ");
    auto messages = simulation.takeMessages();
    messages.resize(std::min(messages.size(), expected.size()));
    for (std::string& message : messages)
      if (message.rfind("Adding", 0) == 0) message.resize(expected.back().size());
    EXPECT_EQ(messages, expected);
    simulation.runUntil(simulation.now() + 19.8);
  }
  EXPECT_EQ(storedInterval(), 0);
}

TEST_F(Heartbeat, AnAnswerInTheBackgroundIsStillTaken) {
  simulation.answer("/heartbeat",
                    {.body = R"({"back_off_seconds":33})", .latency = std::chrono::seconds(5)});
  tracker.setUserId("u");
  simulation.runUntil(2);
  goToBackground();
  simulation.runUntil(60);
  EXPECT_EQ(storedInterval(), 33);
  EXPECT_EQ(beats().size(), 1U);
}

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

TEST_F(Heartbeat, DurationsAreExactToTheMillisecond) {
  simulation.platform.defaults.values["kelvora_heartbeat_interval"] = 1.9996;
  tracker.setUserId("u");
  simulation.runUntil(100);
  for (std::size_t i = 0; i < beats().size(); ++i)
    EXPECT_EQ(durationOf(i), std::to_string(i * 19996 / 10));
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
        std::string(R"({"back_off_seconds":5}x)"), std::string(R"({"a":{"back_off_seconds":5}})"),
        deep, R"({"back_off_seconds":)" + deep, std::string(1 << 20, 'x')})
    EXPECT_EQ(backOff(body), std::nullopt) << body.substr(0, 40);
}

}  // namespace
}  // namespace veltrano::internal

// When requests are attempted again, and when they are put off.
#include <gtest/gtest.h>

#include <tuple>

#include "upload/rules/rests.h"

namespace veltrano::internal {
namespace {

using namespace std::chrono_literals;

AttemptResult status(int status, std::optional<Duration> retryAfter = {}) {
  return {false, status, retryAfter};
}
const AttemptResult kUnconnected{true, {}, {}};

TEST(Retries, ReadEveryFormOfRetryAfter) {
  const WallTime now{std::chrono::seconds(784111777)};  // Sun, 06 Nov 1994 08:49:37 GMT
  EXPECT_EQ(parseRetryAfter("120", now), 120s);
  EXPECT_EQ(parseRetryAfter("99999999999999999999999", now), 24h);
  EXPECT_EQ(parseRetryAfter("Sunday, 06-Nov-94 08:50:07 GMT", now), 30s);
  EXPECT_EQ(parseRetryAfter("Sun Nov  6 08:50:07 1994", now), 30s);
  EXPECT_EQ(parseRetryAfter("Sun, 06 Nov 1994 08:50:07 GMT", now), 30s);
  EXPECT_EQ(parseRetryAfter("Sun, 06 Nov 1994 08:00:00 GMT", now), 0s);
  EXPECT_GT(parseRetryAfter("9223372036854775807", now), 1h);
  for (const char* const wrong :
       {"soon", "-5", "-99999999999999999999", "", "Sun, 36 Nov 1994 08:50:07 GMT",
        "Sun, 06 Nov 1994 08:50:07 GMT+1"})
    EXPECT_EQ(parseRetryAfter(wrong, now), std::nullopt) << wrong;
}

TEST(Retries, BackOff) {
  const auto delay = [](AttemptResult attempt, std::int32_t retries, Duration timeLeft = 60s) {
    return delayBeforeRetry(attempt, {1000, {}, 200ms}, retries, timeLeft, 0.5);
  };
  EXPECT_EQ(delay(kUnconnected, 0), 100ms);
  EXPECT_EQ(delay(kUnconnected, 1), 200ms);
  EXPECT_EQ(delay(kUnconnected, 0, 100ms), std::nullopt);
  EXPECT_EQ(delay(kUnconnected, 999), std::nullopt);
  EXPECT_EQ(delay(status(504, 5s), 0), 5s);
  EXPECT_EQ(delay(status(504, 1ms), 0), 100ms);
  EXPECT_EQ(delay(status(500, 1s), 0), std::nullopt);
}

// The rest that begins after `count` requests end with `result` at `now`.
std::optional<Rest> restAfter(Rests& rests, int count, const AttemptResult& result,
                              Duration now = 0s) {
  std::optional<Rest> rest;
  for (int i = 0; i < count; ++i) rest = rests.requestEnded(now, result, 1);
  return rest;
}

TEST(Rests, FollowTroubleAsThePathSeesIt) {
  const AttemptResult silence;
  const std::tuple<AttemptResult, bool, bool> cases[] = {
      {status(200), false, false}, {status(201), true, false}, {status(400), false, false},
      {status(404), true, false},  {status(408), true, true},  {status(413), true, false},
      {status(429), true, true},   {status(500), true, true},  {status(599), true, true},
      {kUnconnected, true, true},  {silence, true, true},
  };
  for (const auto& [result, isTroubleOfTrack, isTroubleOfHeartbeat] : cases) {
    SCOPED_TRACE(result.httpStatusCode.value_or(0));
    Rests track(EndpointPath::track);
    Rests heartbeat(EndpointPath::heartbeat);
    EXPECT_EQ(restAfter(track, 3, result).has_value(), isTroubleOfTrack);
    EXPECT_EQ(restAfter(heartbeat, 3, result).has_value(), isTroubleOfHeartbeat);
  }
}

TEST(Rests, OfOurOwnDoubleUntilASuccess) {
  Rests rests(EndpointPath::track);
  for (int round = 0; round < 2; ++round) {
    EXPECT_FALSE(restAfter(rests, 2, status(500)));
    EXPECT_TRUE(rests.mayRetry());
    Duration now = 0s;
    for (const Duration length : {2s, 4s, 8s, 16s, 32s, 64s, 128s, 256s, 300s, 300s}) {
      const auto rest = restAfter(rests, 1, status(500), now);
      ASSERT_TRUE(rest);
      EXPECT_EQ(rest->left, length);
      EXPECT_EQ(rest->cause, RestCause::trouble);
      EXPECT_FALSE(rests.mayRetry());
      EXPECT_EQ(rests.puttingOff(now + 1s, Urgency::ordinary)->left, length - 1s);
      EXPECT_FALSE(rests.puttingOff(now += length, Urgency::ordinary));
    }
    EXPECT_FALSE(restAfter(rests, 1, status(200), now));
    EXPECT_TRUE(rests.mayRetry());
  }
  // Jitter takes up to half of it.
  restAfter(rests, 2, status(500));
  EXPECT_EQ(rests.requestEnded(0s, status(500), 0)->left, 1s);
  // Far more than an integer could double.
  EXPECT_EQ(restAfter(rests, 100, status(500))->left, 300s);
}

TEST(Rests, AreGrantedToAServerThatAsks) {
  const auto asked = [](const AttemptResult& result, int count = 1) {
    Rests rests(EndpointPath::track);
    const auto rest = restAfter(rests, count, result);
    if (rest) {
      EXPECT_EQ(rest->cause, RestCause::server);
      EXPECT_FALSE(rests.mayRetry());
    }
    return rest ? rest->left : Duration(0);
  };
  EXPECT_EQ(asked(status(503, 600s)), 600s);
  EXPECT_EQ(asked(status(429, 5s)), 5s);
  EXPECT_EQ(asked(status(503, 24h)), 1h);
  EXPECT_EQ(asked(status(503, 0s)), 0s);
  EXPECT_EQ(asked(status(500, 600s)), 0s);
  EXPECT_EQ(asked(status(503, 1h), 9), 1h);
  // Our own rest follows, and only that can be skipped.
  Rests rests(EndpointPath::heartbeat);
  const auto rest = restAfter(rests, 9, status(503, 5s));
  ASSERT_TRUE(rest);
  EXPECT_EQ(rest->left, 5s);
  EXPECT_EQ(rest->cause, RestCause::server);
  EXPECT_TRUE(rests.puttingOff(4s, Urgency::enteringBackground));
  EXPECT_EQ(rests.puttingOff(5s, Urgency::ordinary)->left, 128s);
  EXPECT_EQ(rests.restAt(5s)->cause, RestCause::trouble);
  EXPECT_FALSE(rests.puttingOff(5s, Urgency::enteringBackground));
}

TEST(Rests, AreSkippedByFlushesThatCannotWait) {
  Rests own(EndpointPath::track);
  restAfter(own, 9, status(500));  // 128 s
  EXPECT_TRUE(own.puttingOff(1s, Urgency::ordinary));
  EXPECT_FALSE(own.puttingOff(1s, Urgency::enteringBackground));
  EXPECT_FALSE(own.puttingOff(1s, Urgency::completion));
  EXPECT_TRUE(own.puttingOff(2s, Urgency::completion));
  EXPECT_TRUE(own.puttingOff(3s - 1us, Urgency::completion));
  EXPECT_FALSE(own.puttingOff(3s, Urgency::completion));

  Rests asked(EndpointPath::track);
  restAfter(asked, 1, status(503, 600s));
  for (const Urgency urgency :
       {Urgency::ordinary, Urgency::completion, Urgency::enteringBackground})
    EXPECT_TRUE(asked.puttingOff(599s, urgency));
  asked.end();
  EXPECT_FALSE(asked.puttingOff(1s, Urgency::ordinary));
  EXPECT_TRUE(asked.mayRetry());
}

TEST(Rests, EndWithTheReturnOfTheRouteIfThatWasMissing) {
  Rests rests(EndpointPath::track);
  restAfter(rests, 9, kUnconnected);
  rests.routeReturned();
  EXPECT_FALSE(rests.puttingOff(0s, Urgency::ordinary));
  EXPECT_FALSE(restAfter(rests, 2, kUnconnected));
  EXPECT_TRUE(restAfter(rests, 1, status(500)));
  rests.routeReturned();
  EXPECT_TRUE(rests.puttingOff(0s, Urgency::ordinary));
}

}  // namespace
}  // namespace veltrano::internal

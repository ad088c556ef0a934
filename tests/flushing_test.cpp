// When events are uploaded, and what happens to them afterwards.
#include <gtest/gtest.h>

#include "tests/support/simulation.h"

namespace veltrano::internal {
namespace {

class Flushing : public testing::Test {
 protected:
  void trackMany(int count) {
    for (int i = 0; i < count; ++i) Veltrano::shared().track("E" + std::to_string(i));
    simulation.settle();
  }

  void fail() { simulation.answer("/track", {.status = 503}); }

  std::vector<double> postTimes() const {
    std::vector<double> times;
    for (const SentPost& post : simulation.posts) times.push_back(post.at);
    return times;
  }

  Simulation simulation;
};

using Times = std::vector<double>;
using Completions = std::vector<std::pair<std::string, bool>>;

TEST_F(Flushing, ThePeriodRunsFromEachOutcome) {
  simulation.answer("/track", {.latency = std::chrono::seconds(3)});
  trackMany(1);
  simulation.runUntil(21);
  trackMany(1);
  simulation.runUntil(90);
  EXPECT_EQ(postTimes(), (Times{20, 43}));
  EXPECT_EQ(simulation.posts[0].eventCount(), 1U);
  EXPECT_EQ(simulation.posts[1].eventCount(), 1U);
}

TEST_F(Flushing, StatusesDecideWhetherTheBatchStays) {
  struct Case {
    SimulatedAnswer answer;
    bool isDelivered;
  };
  const Case cases[] = {
      {{.status = 200}, true},
      {{.status = 400}, true},
      {{.status = 201}, false},
      {{.status = 204}, false},
      {{.status = 302}, false},
      {{.status = 500}, false},
      {{.status = 503}, false},
      {{.kind = SimulatedAnswer::Kind::transportError}, false},
      {{.kind = SimulatedAnswer::Kind::notHTTP}, false},
  };
  Veltrano::isLoggerEnabled = true;
  std::size_t waiting = 0;
  for (const Case& it : cases) {
    simulation.answer("/track", it.answer);
    Veltrano::shared().track("E", {}, simulation.completion("it"));
    simulation.runUntil(simulation.now() + 1);
    EXPECT_EQ(simulation.posts.back().eventCount(), ++waiting) << it.answer.status;
    EXPECT_EQ(simulation.completions.back().second, it.isDelivered) << it.answer.status;
    if (it.isDelivered) waiting = 0;
    const auto messages = simulation.takeMessages();
    const auto responses = std::count_if(messages.begin(), messages.end(), [](const auto& m) {
      return m.rfind("Got response: ", 0) == 0;
    });
    EXPECT_EQ(responses, it.answer.kind == SimulatedAnswer::Kind::http ? 1 : 0);
  }
}

TEST_F(Flushing, AFailingHostLosesNothingUpToTheCapacity) {
  fail();
  Veltrano::isLoggerEnabled = true;
  for (int i = 0; i < 201; ++i) {
    trackMany(1);
    simulation.runUntil(simulation.now() + 0.1);
  }
  const auto messages = simulation.takeMessages();
  EXPECT_EQ(std::count(messages.begin(), messages.end(),
                       "Current event count: 201 over capacity, trimming"),
            1);
  EXPECT_EQ(simulation.posts.size(), 192U);
  EXPECT_EQ(simulation.posts.back().eventCount(), 200U);

  simulation.answer("/track", {});
  simulation.runUntil(simulation.now() + 25);
  EXPECT_EQ(simulation.posts.back().eventCount(), 200U);
  const std::size_t posts = simulation.posts.size();
  simulation.runUntil(simulation.now() + 100);
  EXPECT_EQ(simulation.posts.size(), posts);
}

TEST_F(Flushing, ACompletionMayUseTheTrackerAndThrow) {
  Veltrano::shared().track("A", {}, [&](bool) {
    Veltrano::shared().track("B", {}, simulation.completion("inner"));
    throw std::string("thrown");
  });
  simulation.runUntil(1);
  EXPECT_EQ(simulation.completions, (Completions{{"inner", true}}));
}

TEST_F(Flushing, GoingToTheBackgroundDuringAnUploadFlushesAfterIt) {
  fail();
  trackMany(1);
  simulation.runUntil(20.01);  // during the periodic flush
  simulation.platform.notificationCenter.post(std::string(kApplicationDidEnterBackground));
  simulation.runUntil(100);
  EXPECT_EQ(postTimes(), (Times{20, 20.05}));
  EXPECT_EQ(simulation.posts.back().eventCount(), 1U);
}

}  // namespace
}  // namespace veltrano::internal

// When events are uploaded, and what becomes of them.
#include <gtest/gtest.h>

#include "tests/support/simulation.h"

namespace veltrano {
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
using Messages = std::vector<std::string>;
using Completions = std::vector<std::pair<std::string, bool>>;

TEST_F(Flushing, OneUploadLogsItsWholeCourse) {
  Veltrano::isLoggerEnabled = true;
  Veltrano::shared().track("Open", {}, simulation.completion("forced"));
  EXPECT_EQ(simulation.lines.at(0),
            "Veltrano 22:13:20.0000 | Scheduling the next flush with default interval");
  simulation.runUntil(1);
  EXPECT_EQ(simulation.takeMessages(),
            (Messages{
                "Scheduling the next flush with default interval",
                "Scheduling a flush with delay of 20 secs",
                "Canceling scheduled flush!",
                "Adding event of Open to current 0 events",
                "In dispatch queue code block for adding event to queue",
                "Added event and now have 1 events",
                "Current event count: 1 reached/over threshold, flushing",
                "Forcing a flush right now",
                "Scheduling a flush that is forced",
                "Canceling scheduled flush!",
                "Leaving dispatch queue code block for adding event to queue",
                "In the scheduled flush work item block  that is forced",
                "Entered dispatch group",
                "Sending to the Corvane Endpoint",
                "Dispatch group waiting",
                "Got response: 200",
                "Got the response from endpoint. Clear queue: true",
                "Clearing the queue",
                "Scheduling the next flush with default interval",
                "Scheduling a flush with delay of 20 secs",
                "Canceling scheduled flush!",
                "Exiting completion block of Endpoint request",
                "Dispatch group finished waiting",
            }));
  EXPECT_EQ(simulation.completions, (Completions{{"forced", true}}));

  // An empty queue is flushed without any traffic.
  simulation.runUntil(20.5);
  EXPECT_EQ(simulation.takeMessages(),
            (Messages{
                "In the scheduled flush work item block after delay of 20 secs",
                "Entered dispatch group",
                "Got the response from endpoint. Clear queue: false",
                "Scheduling the next flush with default interval",
                "Scheduling a flush with delay of 20 secs",
                "Canceling scheduled flush!",
                "Exiting completion block of Endpoint request",
                "Dispatch group waiting",
                "Dispatch group finished waiting",
            }));
  EXPECT_EQ(simulation.posts.size(), 1U);
}

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

TEST_F(Flushing, TheTenthEventFlushesAtOnce) {
  trackMany(9);
  EXPECT_TRUE(simulation.posts.empty());
  trackMany(1);
  ASSERT_EQ(simulation.posts.size(), 1U);
  EXPECT_EQ(simulation.posts[0].eventCount(), 10U);
  EXPECT_EQ(simulation.posts[0].eventName(0), "E0");
  simulation.runUntil(30);
  EXPECT_EQ(simulation.posts.size(), 1U);
}

TEST_F(Flushing, OnlyTheNewestOfTwoForcedFlushesIsMade) {
  Veltrano::shared().track("A", {}, simulation.completion("first"));
  Veltrano::shared().track("B", {}, simulation.completion("second"));
  simulation.runUntil(1);
  EXPECT_EQ(simulation.completions, (Completions{{"second", true}}));
  ASSERT_EQ(simulation.posts.size(), 1U);
  EXPECT_EQ(simulation.posts[0].eventCount(), 2U);
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

TEST_F(Flushing, NothingRunsOnTheQueueWhileAnUploadIsUnderWay) {
  fail();
  simulation.platform.network.answers["/track"].latency = std::chrono::seconds(10);
  Veltrano::shared().track("A", {}, simulation.completion("a"));
  simulation.runUntil(5);
  Veltrano::isLoggerEnabled = true;
  Veltrano::shared().setAppId("app");
  Veltrano::shared().setSuperProperties({{"uid", "late"}});
  Veltrano::shared().track("B", {}, simulation.completion("b"));
  simulation.runUntil(9);
  EXPECT_EQ(simulation.takeMessages(),
            (Messages{"Setting app id to app", "Adding event of B to current 1 events"}));
  simulation.answer("/track", {});
  simulation.runUntil(11);
  EXPECT_EQ(simulation.completions, (Completions{{"a", false}, {"b", true}}));
  ASSERT_EQ(simulation.posts.size(), 2U);
  EXPECT_EQ(simulation.posts[0].request.qsParameters.at("uid"), "");
  EXPECT_EQ(simulation.posts[1].request.qsParameters.at("uid"), "late");
  EXPECT_EQ(simulation.posts[1].eventName(0), "A");
  EXPECT_EQ(simulation.posts[1].eventName(1), "B");
}

TEST_F(Flushing, ACompletionMayUseTheTrackerAndThrow) {
  Veltrano::shared().track("A", {}, [&](bool) {
    Veltrano::shared().track("B", {}, simulation.completion("inner"));
    throw std::string("thrown");
  });
  simulation.runUntil(1);
  EXPECT_EQ(simulation.completions, (Completions{{"inner", true}}));
}

TEST_F(Flushing, TheBackgroundEndsTheCycleWithOneFlush) {
  auto& application = simulation.platform.notificationCenter;
  const std::string background(kApplicationDidEnterBackground);
  const std::string foreground(kApplicationWillEnterForeground);
  trackMany(3);
  simulation.runUntil(5);
  Veltrano::isLoggerEnabled = true;
  application.post(background);
  EXPECT_EQ(simulation.takeMessages(),
            (Messages{"App entered background!", "Forcing a flush right now",
                      "Scheduling a flush that is forced", "Canceling scheduled flush!"}));
  simulation.runUntil(100);
  EXPECT_EQ(postTimes(), (Times{5}));

  trackMany(205);
  Veltrano::shared().track("forced", {}, simulation.completion("never"));
  simulation.runUntil(200);
  EXPECT_EQ(postTimes(), (Times{5}));

  simulation.takeMessages();
  application.post(foreground);
  EXPECT_EQ(simulation.takeMessages(),
            (Messages{"App becoming active!", "Scheduling the next flush with default interval",
                      "Scheduling a flush with delay of 20 secs", "Canceling scheduled flush!"}));
  simulation.runUntil(300);
  EXPECT_EQ(postTimes(), (Times{5, 220}));
  EXPECT_EQ(simulation.posts.back().eventCount(), 200U);
  EXPECT_TRUE(simulation.completions.empty());
}

TEST_F(Flushing, GoingToTheBackgroundDuringAnUploadFlushesAfterIt) {
  fail();
  trackMany(1);
  simulation.runUntil(20.01);  // the periodic flush is under way
  simulation.platform.notificationCenter.post(std::string(kApplicationDidEnterBackground));
  simulation.runUntil(100);
  EXPECT_EQ(postTimes(), (Times{20, 20.05}));
  EXPECT_EQ(simulation.posts.back().eventCount(), 1U);
}

}  // namespace
}  // namespace veltrano

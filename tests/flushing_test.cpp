// What becomes of events and completions when something fails. When events are uploaded, the
// scenarios show.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <utility>

#include "tests/support/simulation.h"

namespace veltrano::internal {
namespace {

TEST(Flushing, AnUploadThatEndsOnEnteringTheBackgroundPutsNothingOff) {
  Simulation simulation;
  simulation.platform.network.answers["/track"] = {.status = 503};
  Veltrano::shared().track("E", {}, simulation.completion());
  Veltrano::isLoggerEnabled = true;
  bool hasEntered = false;
  simulation.platform.output.onLine = [&](std::string_view line) {
    if (!line.ends_with("Scheduling the next flush with default interval")) return;
    if (!std::exchange(hasEntered, true))
      simulation.platform.notificationCenter.post(std::string(kApplicationDidEnterBackground));
  };
  simulation.runUntil(5);
  EXPECT_EQ(simulation.posts.size(), 2U);
}

TEST(Flushing, WithoutMemoryForAnUploadTheLargestEventIsDropped) {
  Simulation simulation;
  Veltrano& tracker = Veltrano::shared();
  tracker.track("small");
  tracker.track("large", {{"text", std::string(1000, 'x')}});
  const auto note = simulation.platform.network.onPost;
  simulation.platform.network.onPost = [&](const PostRequest&) { throw std::bad_alloc(); };
  tracker.track("last", {}, simulation.completion());
  simulation.runUntil(1);
  EXPECT_EQ(simulation.outcomes, std::vector<bool>{false});
  EXPECT_EQ(tracker.statistics().uploadsFailedForMemory, 1U);
  EXPECT_EQ(tracker.statistics().droppedForMemory, 1U);
  simulation.platform.network.onPost = note;
  simulation.runUntil(20);
  ASSERT_EQ(simulation.posts.size(), 1U);
  EXPECT_EQ(simulation.posts[0].Size(), 2U);
  EXPECT_STREQ(simulation.posts[0][1u]["event"].GetString(), "last");
}

TEST(Flushing, AFlushThatWasReplacedIsNotMade) {
  Simulation simulation;
  int added = 0;
  simulation.platform.output.onLine = [&](std::string_view line) {
    if (line.find("Added event") != line.npos && ++added == 2) Veltrano::shared().track("between");
  };
  Veltrano::isLoggerEnabled = true;
  for (int i = 0; i < 2; ++i) Veltrano::shared().track("E", {}, simulation.completion());
  simulation.settle();
  Veltrano::isLoggerEnabled = false;
  ASSERT_EQ(simulation.posts.size(), 1U);
  EXPECT_EQ(simulation.posts[0].Size(), 3U);
}

// As when the host ends the thread that would report it.
struct ForgetfulNetwork final : ZKURLSessionManager {
  void postData(PostRequest, URLSessionCallback) override { ++posts; }
  int posts = 0;
};

TEST(Flushing, AnUploadThatNobodyReportsIsRepeatedWithTheNextEvent) {
  ForgetfulNetwork network;
  Simulation simulation([&](Platform& services) { services.urlSession = &network; });
  Veltrano& tracker = Veltrano::shared();
  tracker.track("A");
  simulation.runUntil(50);
  EXPECT_EQ(network.posts, 1);
  EXPECT_EQ(tracker.statistics().uploadsFailedInTransport, 1U);
  EXPECT_EQ(tracker.statistics().waiting, 1U);
  tracker.track("B");
  simulation.runUntil(51);
  EXPECT_EQ(network.posts, 2);
}

// How many calls a work queue that sleeps may leave unread, and which calls never wait.
TEST(DeferredCalls, WaitOnlyWhileNothingDependsOnThem) {
  struct DeferringQueue final : SimulatedWorkQueue {
    using SimulatedWorkQueue::SimulatedWorkQueue;
    void asyncDeferred(std::unique_ptr<Block> block) override {
      ++deferred;
      async(std::move(block));
    }
    void wakeUp() override { ++wakeUps; }
    void setDeferrable(std::function<std::size_t()> function) override {
      deferrable = std::move(function);
    }

    std::function<std::size_t()> deferrable;
    int deferred = 0;
    int wakeUps = 0;
  };
  SimulatedPlatform simulated;
  Platform platform = simulated.services();
  DeferringQueue queue(simulated.timeline);
  platform.workQueue = &queue;
  Library library(platform);
  // Tracks `count` events and lets a second pass.
  const auto track = [&](int count, Veltrano::FlushCompletion completion = nullptr) {
    for (; count > 0; --count) library.tracker().track("E", {}, std::move(completion));
    simulated.timeline.runUntil(simulated.timeline.now() + std::chrono::seconds(1));
  };

  EXPECT_EQ(queue.deferrable(), 0U);  // no flush is pending
  library.tracker();                  // the first use starts the flush cycle
  EXPECT_EQ(queue.deferrable(), 10U);
  track(3);
  EXPECT_EQ(queue.deferred, 3);
  EXPECT_EQ(queue.deferrable(), 7U);
  track(1, [](bool) {});
  Veltrano::isLoggerEnabled = true;
  simulated.output.onLine = [](std::string_view) {};
  track(1);
  Veltrano::isLoggerEnabled = false;
  EXPECT_EQ(queue.deferred, 3);

  simulated.network.answers["/track"] = {.status = 503};
  track(10);
  EXPECT_EQ(queue.deferrable(), 0U);  // each event is due to be sent again
  simulated.network.answers["/track"] = {};
  track(1);
  EXPECT_EQ(queue.deferrable(), 10U);

  for (const auto state : {kApplicationDidEnterBackground, kApplicationWillEnterForeground}) {
    simulated.notificationCenter.post(std::string(state));
    EXPECT_EQ(std::exchange(queue.wakeUps, 0), 1);
    track(0);
    EXPECT_EQ(queue.deferrable(), state == kApplicationWillEnterForeground ? 10U : 0U);
  }
}

}  // namespace
}  // namespace veltrano::internal

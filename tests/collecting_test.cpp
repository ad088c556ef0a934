// What happens while the host has switched collecting off.
#include <gtest/gtest.h>

#include "tests/support/simulation.h"

namespace veltrano::internal {
namespace {

class Collecting : public testing::Test {
 protected:
  // The times and the events of the posts so far.
  std::vector<std::string> posts() const {
    std::vector<std::string> texts;
    for (const SentPost& post : simulation.posts) {
      std::string text = std::to_string(static_cast<int>(post.at));
      for (std::size_t i = 0; post.body.IsArray() && i < post.eventCount(); ++i)
        text += ' ' + post.eventName(i);
      texts.push_back(text);
    }
    return texts;
  }

  void notify(std::string_view name) {
    simulation.platform.notificationCenter.post(std::string(name));
  }

  Simulation simulation;
  Veltrano& tracker = Veltrano::shared();
};

using Posts = std::vector<std::string>;
using Completions = std::vector<std::pair<std::string, bool>>;

TEST_F(Collecting, OffDropsWhatWaitsAndWhatIsOnItsWay) {
  int refreshes = 0;
  tracker.setRefreshTriggersWithHandler({{"Silenced"}}, [&] { ++refreshes; });
  tracker.track("Waits");
  simulation.settle();
  for (int i = 0; i < 10; ++i) tracker.track("Forces", {}, simulation.completion("dropped"));
  tracker.setCollecting(false);
  tracker.track("Silenced", {}, simulation.completion("silenced"));
  tracker.setUserId("user");
  simulation.runUntil(60);
  EXPECT_EQ(posts(), Posts());
  EXPECT_EQ(refreshes, 1);
  EXPECT_EQ(tracker.statistics().recorded, 11U);
  EXPECT_EQ(tracker.statistics().droppedByOptOut, 11U);
  EXPECT_NE(Veltrano::status().find("when collecting is switched on"), std::string::npos);

  tracker.setCollecting(true);
  tracker.track("Recorded");
  simulation.runUntil(79);
  simulation.posts.clear();  // heartbeats
  simulation.runUntil(80);
  EXPECT_EQ(posts(), Posts{"80 Recorded"});
  EXPECT_EQ(text(simulation.posts[0].properties(), "uid"), "\"user\"");
  EXPECT_EQ(simulation.completions, Completions());
}

TEST_F(Collecting, TakesItsTurnAmongTheCallsOfAThread) {
  tracker.track("Before", {}, simulation.completion("before"));
  tracker.setCollecting(false);
  tracker.setCollecting(true);
  simulation.settle();
  tracker.track("Between");
  tracker.setCollecting(false);
  tracker.setCollecting(true);
  tracker.track("After", {}, simulation.completion("after"));
  simulation.runUntil(30);
  EXPECT_EQ(posts(), Posts{"0 After"});
  EXPECT_EQ(simulation.completions, (Completions{{"after", true}}));
}

TEST_F(Collecting, AnUploadInFlightEndsAndItsBatchGoes) {
  for (const int status : {200, 503}) {
    simulation.answer("/track", {.status = status, .latency = std::chrono::seconds(3)});
    tracker.track("E", {}, simulation.completion("ended"));
    simulation.runUntil(simulation.now() + 1);
    tracker.setCollecting(false);
    simulation.runUntil(simulation.now() + 60);
    EXPECT_EQ(simulation.completions, (Completions{{"ended", status == 200}}));
    simulation.completions.clear();
    tracker.setCollecting(true);
    simulation.runUntil(simulation.now() + 60);
    EXPECT_EQ(simulation.posts.size(), 1U);
    simulation.posts.clear();
  }
  EXPECT_EQ(tracker.statistics().delivered, 1U);
  EXPECT_EQ(tracker.statistics().droppedByOptOut, 1U);
}

TEST_F(Collecting, HeartbeatsEndAndStartAgain) {
  tracker.setUserId("user");
  simulation.runUntil(5);
  tracker.setCollecting(false);
  simulation.runUntil(60);
  notify(kApplicationDidBecomeActive);
  simulation.runUntil(70);
  EXPECT_EQ(posts(), Posts{"1"});
  tracker.setCollecting(true);
  tracker.setCollecting(true);
  simulation.runUntil(95);
  EXPECT_EQ(posts(), (Posts{"1", "71", "91"}));
}

TEST_F(Collecting, OnInTheBackgroundWaitsForTheForeground) {
  tracker.setCollecting(false);
  notify(kApplicationDidEnterBackground);
  tracker.setCollecting(true);
  tracker.track("E");
  simulation.runUntil(60);
  EXPECT_EQ(posts(), Posts());
  notify(kApplicationWillEnterForeground);
  simulation.runUntil(90);
  EXPECT_EQ(posts(), Posts{"80 E"});

  tracker.setCollecting(false);
  notify(kApplicationDidEnterBackground);
  notify(kApplicationWillEnterForeground);  // takes effect all the same
  tracker.setCollecting(true);
  tracker.track("F");
  simulation.runUntil(120);
  EXPECT_EQ(posts(), (Posts{"80 E", "110 F"}));
}

}  // namespace
}  // namespace veltrano::internal

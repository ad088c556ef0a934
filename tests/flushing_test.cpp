// What becomes of events and completions when something fails. When events are uploaded, the
// scenarios show.
#include <gtest/gtest.h>

#include <new>

#include "tests/support/simulation.h"

namespace veltrano::internal {
namespace {

class Flushing : public testing::Test {
 protected:
  Simulation simulation;
  Veltrano& tracker = Veltrano::shared();
};

TEST_F(Flushing, AFailingHostLosesNothingUpToTheCapacity) {
  simulation.answer("/track", {.status = 503});
  for (int i = 0; i < 201; ++i) {
    tracker.track("E" + std::to_string(i));
    simulation.runUntil(simulation.now() + 0.1);
  }
  EXPECT_EQ(simulation.posts.size(), 192U);
  EXPECT_EQ(simulation.posts.back().eventCount(), 200U);
  EXPECT_EQ(simulation.posts.back().eventName(0), "E1");

  simulation.answer("/track", {});
  simulation.runUntil(simulation.now() + 125);
  EXPECT_EQ(simulation.posts.size(), 193U);
  EXPECT_EQ(tracker.statistics().delivered, 200U);
}

TEST_F(Flushing, ACompletionMayUseTheTrackerAndThrow) {
  tracker.track("A", {}, [&](bool) {
    tracker.track("B", {}, simulation.completion("inner"));
    throw std::string("thrown");
  });
  simulation.runUntil(1);
  EXPECT_EQ(simulation.completions.size(), 1U);
}

TEST_F(Flushing, WithoutMemoryForAnUploadTheLargestEventIsDropped) {
  tracker.track("small");
  tracker.track("large", {{"text", std::string(1000, 'x')}});
  const auto note = simulation.platform.network.onPost;
  simulation.platform.network.onPost = [&](const PostRequest&) { throw std::bad_alloc(); };
  tracker.track("last", {}, simulation.completion("last"));
  simulation.runUntil(1);
  EXPECT_EQ(simulation.completions.size(), 1U);
  EXPECT_FALSE(simulation.completions.back().second);
  EXPECT_EQ(tracker.statistics().uploadsFailedForMemory, 1U);
  EXPECT_EQ(tracker.statistics().droppedForMemory, 1U);
  simulation.platform.network.onPost = note;
  simulation.runUntil(25);
  ASSERT_EQ(simulation.posts.size(), 1U);
  EXPECT_EQ(simulation.posts[0].eventCount(), 2U);
  EXPECT_EQ(simulation.posts[0].eventName(1), "last");
}

// As when the host ends the thread that would report it.
struct ForgetfulNetwork final : ZKURLSessionManager {
  void postData(PostRequest, URLSessionCallback) override { ++posts; }
  int posts = 0;
};

TEST(FlushingFaults, AnUploadThatNobodyReportsIsRepeatedWithTheNextEvent) {
  SimulatedPlatform platform;
  ForgetfulNetwork network;
  Platform services = platform.services();
  services.urlSession = &network;
  Library library(services);
  library.tracker().track("A", {}, nullptr);
  platform.timeline.runUntil(std::chrono::seconds(50));
  EXPECT_EQ(network.posts, 1);
  EXPECT_EQ(library.accounting().statistics().uploadsFailedInTransport, 1U);
  EXPECT_EQ(library.accounting().statistics().waiting, 1U);
  library.tracker().track("B", {}, nullptr);
  platform.timeline.runUntil(std::chrono::seconds(51));
  EXPECT_EQ(network.posts, 2);
}

}  // namespace
}  // namespace veltrano::internal

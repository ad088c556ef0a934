// How a library starts, and one without a platform.
#include "tracker/library.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/simulation.h"
#include "veltrano/veltrano.h"

namespace veltrano::internal {
namespace {

TEST(Libraries, WithoutAPlatformTheFirstTouchDecides) {
  int calls = 0;
  Veltrano::isLoggerEnabled = true;
  auto& tracker = Veltrano::shared();
  tracker.setUserId("user");
  tracker.setRefreshTriggersWithHandler({{"E"}}, [&] { ++calls; });
  tracker.track("E", {{"a", 1}}, [&](bool) { calls += 100; });
  EXPECT_EQ(tracker.getScreenOrientation(), "unknown");
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(Library::install(Platform()));
  Veltrano::isLoggerEnabled = false;
  const std::unique_ptr<Library> made(Library::exchangeCurrent(nullptr));
  EXPECT_NE(made, nullptr);
}

// The tracker logs its first lines while it starts, in local time.
TEST(Libraries, ALogSinkMayUseTheTrackerThatStarts) {
  struct ZonedClock final : WallClock {
    std::chrono::seconds localTimeOffset(WallTime) const override {
      return std::chrono::minutes(330);
    }
  } clock;
  Simulation simulation([&](Platform& services) { services.wallClock = &clock; });
  std::vector<std::string> orientations;
  simulation.platform.output.onLine = [&](std::string_view line) {
    EXPECT_TRUE(line.starts_with("Veltrano 05:30:00.0000 | ")) << line;
    orientations.push_back(Veltrano::shared().getScreenOrientation());
  };
  Veltrano::isLoggerEnabled = true;
  Veltrano::shared();
  EXPECT_EQ(orientations, std::vector<std::string>(3, "portrait"));
}

// Or a notification in between would reach nobody.
TEST(Libraries, EveryFirstUserFindsTheObserversRegistered) {
  struct SlowCenter final : NotificationCenter {
    void addObserver(std::string_view, std::function<void()>) override {
      if (observers == 0) {
        isRegistering.count_down();
        secondIsBack.get_future().wait_for(std::chrono::milliseconds(100));
      }
      ++observers;
    }
    std::latch isRegistering{1};
    std::promise<void> secondIsBack;
    std::atomic<int> observers{0};
  } center;
  Simulation simulation([&](Platform& services) { services.notificationCenter = &center; });
  std::jthread first([] { Veltrano::shared(); });
  center.isRegistering.wait();
  Veltrano::shared();
  EXPECT_EQ(center.observers, 4);
  center.secondIsBack.set_value();
}

TEST(Libraries, AFlushThatIsForcedWhileTheTrackerStartsIsMade) {
  Simulation simulation;
  std::latch isStarting(1), isForced(1);
  std::thread starter;
  simulation.platform.output.onLine = [&](std::string_view line) {
    if (!isStarting.try_wait() && line.ends_with("Canceling scheduled flush!")) {
      isStarting.count_down();
      isForced.wait();
    } else if (line.ends_with("Leaving dispatch queue code block for adding event to queue")) {
      isForced.count_down();
      starter.join();
    }
  };
  Veltrano::isLoggerEnabled = true;
  starter = std::thread([] { Veltrano::shared(); });
  isStarting.wait();
  Veltrano::shared().track("E", {}, simulation.completion());
  simulation.runUntil(1);
  EXPECT_EQ(simulation.outcomes, std::vector<bool>{true});
}

}  // namespace
}  // namespace veltrano::internal

// Several libraries in one process, and one without a platform.
#include "tracker/library.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <latch>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/simulated/simulated_platform.h"
#include "veltrano/veltrano.h"

namespace veltrano::internal {
namespace {

struct Client {
  explicit Client(std::shared_ptr<Timeline> timeline) : platform(std::move(timeline)) {
    platform.network.onPost = [this](const PostRequest& post) {
      ++posts[post.baseURL.substr(post.baseURL.rfind('/')) + " " + post.qsParameters.at("uid") +
              " " + post.headerParameters.at("publisher_version")];
    };
  }

  SimulatedPlatform platform;
  std::map<std::string, int> posts;
  Library library{platform.services()};
};

TEST(Libraries, OnOneTimelineKeepToThemselves) {
  using Posts = std::map<std::string, int>;
  const auto timeline = std::make_shared<Timeline>();
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < 3; ++i) clients.push_back(std::make_unique<Client>(timeline));
  for (int i = 0; i < 3; ++i) {
    const std::string number = std::to_string(i);
    clients[i]->platform.bundles.mainInfo = HostMap{{"CFBundleShortVersionString", number}};
    if (i < 2) clients[i]->library.tracker().setUserId("user-" + number);
    clients[i]->library.tracker().track("E", {}, nullptr);
  }
  clients[1]->platform.network.answers["/track"].status = 503;
  clients[1]->platform.device.applicationState = ApplicationState::background;
  timeline->runUntil(std::chrono::seconds(45));
  EXPECT_EQ(clients[0]->posts, (Posts{{"/heartbeat user-0 ios_0", 3}, {"/track user-0 ios_0", 1}}));
  EXPECT_EQ(clients[1]->posts, (Posts{{"/track user-1 ios_1", 2}}));
  EXPECT_EQ(clients[2]->posts, (Posts{{"/track  ios_2", 1}}));
  // None of them is the process's library.
  EXPECT_EQ(Library::exchangeCurrent(nullptr), nullptr);
}

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

// The tracker logs its first lines while it starts.
TEST(Libraries, ALogSinkMayUseTheTrackerThatStarts) {
  SimulatedPlatform platform;
  Library library(platform.services());
  Library* const replaced = Library::exchangeCurrent(&library);
  std::vector<std::string> orientations;
  platform.output.onLine = [&](std::string_view) {
    orientations.push_back(Veltrano::shared().getScreenOrientation());
  };
  Veltrano::isLoggerEnabled = true;
  Veltrano::shared();
  Veltrano::isLoggerEnabled = false;
  EXPECT_EQ(orientations, std::vector<std::string>(3, "portrait"));
  Library::exchangeCurrent(replaced);
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
  SimulatedPlatform platform;
  Platform services = platform.services();
  services.notificationCenter = &center;
  Library library(services);
  std::jthread first([&] { library.tracker(); });
  center.isRegistering.wait();
  library.tracker();
  EXPECT_EQ(center.observers, 4);
  center.secondIsBack.set_value();
}

TEST(Libraries, AFlushThatIsForcedWhileTheTrackerStartsIsMade) {
  SimulatedPlatform platform;
  Library library(platform.services());
  std::latch isStarting(1), isForced(1);
  std::thread starter;
  platform.output.onLine = [&](std::string_view line) {
    if (!isStarting.try_wait() && line.ends_with("Canceling scheduled flush!")) {
      isStarting.count_down();
      isForced.wait();
    } else if (line.ends_with("Leaving dispatch queue code block for adding event to queue")) {
      isForced.count_down();
      starter.join();
    }
  };
  Veltrano::isLoggerEnabled = true;
  starter = std::thread([&] { library.tracker(); });
  isStarting.wait();
  std::vector<bool> outcomes;
  const std::function<void(bool)> note = [&](bool accepted) { outcomes.push_back(accepted); };
  library.tracker().track("E", {}, note);
  platform.timeline.runUntil(std::chrono::seconds(1));
  Veltrano::isLoggerEnabled = false;
  EXPECT_EQ(outcomes, std::vector<bool>{true});
}

}  // namespace
}  // namespace veltrano::internal

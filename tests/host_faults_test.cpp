// A host that treats the library badly, on the POSIX platform, with nobody to take its events.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <latch>
#include <set>
#include <thread>

#include "veltrano/posix_platform.h"
#include "veltrano/veltrano.h"

namespace veltrano {
namespace {

class HostFaults : public testing::Test {
 protected:
  HostFaults() {
    PosixOptions options;
    options.collectionHost = "localhost:1";  // nobody listens there
    options.logSink = [](std::string_view line) {
      if (line.ends_with("| Scheduling the next flush with default interval")) ++cycles;
      if (line.ends_with(" over capacity, trimming")) ++trims;
    };
    const Installation installation = PosixPlatform::install(std::move(options));
    EXPECT_TRUE(installation) << installation.error;
    Veltrano::isLoggerEnabled = true;
  }

  // Runs `work` on `count` threads that begin together.
  template <class Work>
  static void runTogether(int count, const Work& work) {
    std::latch start(count);
    std::vector<std::jthread> threads;
    for (int i = 0; i < count; ++i)
      threads.emplace_back([&, i] {
        start.arrive_and_wait();
        work(i);
      });
  }

  // Static: the library logs until the process ends.
  static inline std::atomic<int> cycles{0};
  static inline std::atomic<int> trims{0};
};

TEST_F(HostFaults, TheFirstTouchComesFromManyThreads) {
  std::mutex mutex;
  std::set<Veltrano*> instances;
  runTogether(8, [&](int i) {
    Veltrano::shared().setUserId("user-" + std::to_string(i));
    const std::lock_guard lock(mutex);
    instances.insert(&Veltrano::shared());
  });
  EXPECT_EQ(instances.size(), 1U);
  EXPECT_EQ(cycles, 1);
}

TEST_F(HostFaults, ManyThreadsTrackWhileEveryUploadFails) {
  constexpr int kThreads = 16;
  constexpr int kCallsPerThread = 100'000 / kThreads;
  auto& tracker = Veltrano::shared();
  tracker.setRefreshTriggersWithHandler({{"trigger"}}, [&] { tracker.track("inner"); });
  tracker.track("trigger");
  runTogether(kThreads, [&](int i) {
    for (int n = 0; n < kCallsPerThread; ++n) tracker.track("E", {{"thread", i}, {"n", n}});
  });
  std::promise<bool> outcome;
  tracker.track("last", {}, [&](bool) {
    tracker.track("from a completion", {}, [&](bool result) { outcome.set_value(result); });
  });
  EXPECT_FALSE(outcome.get_future().get());
  // Every event was recorded once: all but those that still wait have been trimmed.
  EXPECT_EQ(trims, kThreads * kCallsPerThread + 4 - 200);
}

// Forks while the library's own locks are being taken: by first uses, and by the first heartbeat.
TEST_F(HostFaults, AForkedChildDoesNothingAndDoesNotHang) {
  std::atomic<bool> isOver{false};
  std::jthread user([&] {
    for (int i = 0; !isOver && i < 200'000; ++i) {
      auto& tracker = Veltrano::shared();
      tracker.setUserId("user");
      tracker.setRefreshTriggersWithHandler({{"trigger"}}, [] {});
      tracker.track("trigger", {}, [](bool) {});
    }
  });
  for (int i = 0; i < 50; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(20);
      int calls = 0;
      auto& tracker = Veltrano::shared();
      tracker.setUserId("user");
      tracker.setRefreshTriggersWithHandler({{"E"}}, [&] { ++calls; });
      tracker.track("E", {{"a", 1}}, [&](bool) { ++calls; });
      tracker.setSuperProperties({{"a", 1}});
      tracker.setIdfa();
      const bool isUnknown = tracker.getScreenOrientation() == "unknown";
      _exit(isUnknown && calls == 0 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  isOver = true;
}

}  // namespace
}  // namespace veltrano

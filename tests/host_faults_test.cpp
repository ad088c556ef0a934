// A host that treats the library badly, on the POSIX platform, with nobody to take its events.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <latch>
#include <memory>
#include <set>
#include <thread>

#include "platform/posix/posix_services.h"
#include "tracker/library.h"
#include "veltrano/veltrano.h"

namespace veltrano::internal {
namespace {

class HostFaults : public testing::Test {
 protected:
  HostFaults() {
    PosixOptions options;
    options.collectionHost = "localhost:1";  // nobody listens there
    static const Installation installation = PosixPlatform::install(options);
    EXPECT_TRUE(installation) << installation.error;
    // Each case has a library of its own, which is never destroyed: its threads go on.
    options.logSink = [cycles = cycles](std::string_view line) {
      if (line.ends_with("| Scheduling the next flush with default interval")) ++*cycles;
    };
    Library::exchangeCurrent(new Library((new PosixServices(options))->platform()));
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

  const std::shared_ptr<std::atomic<int>> cycles = std::make_shared<std::atomic<int>>(0);
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
  EXPECT_EQ(*cycles, 1);
}

TEST_F(HostFaults, ManyThreadsTrackWhileEveryUploadFails) {
  constexpr int kThreads = 16;
  constexpr int kCallsPerThread = 100'000 / kThreads;
  auto& tracker = Veltrano::shared();
  tracker.setRefreshTriggersWithHandler({{"trigger"}}, [&] { tracker.track("inner"); });
  tracker.track("trigger");
  const auto expectBalance = [&] {
    const Statistics s = tracker.statistics();
    EXPECT_EQ(s.recorded, s.waiting + s.inFlight + s.delivered + s.dropped());
    return s;
  };
  runTogether(kThreads, [&](int i) {
    for (int n = 0; n < kCallsPerThread; ++n) {
      tracker.track("E", {{"thread", i}, {"n", n}});
      if (n % 100 == 0) expectBalance();
    }
  });
  std::promise<bool> outcome;
  tracker.track("last", {}, [&](bool) {
    tracker.track("from a completion", {}, [&](bool result) { outcome.set_value(result); });
  });
  EXPECT_FALSE(outcome.get_future().get());
  const Statistics last = expectBalance();
  EXPECT_EQ(last.recorded, kThreads * kCallsPerThread + 4U);
  EXPECT_EQ(last.waiting, 200U);
  EXPECT_EQ(last.droppedByTrimming, last.recorded - 200);
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

TEST_F(HostFaults, ACallbackMayForkAndGoOnInTheChild) {
  auto& tracker = Veltrano::shared();
  std::atomic<bool> isOver{false};
  std::thread user([&] {
    for (int i = 0; !isOver && i < 200'000; ++i) tracker.track("E");
  });
  std::atomic<pid_t> child{-1};
  const auto forkHere = [&] {
    child = fork();
    if (child == 0) alarm(20);
  };
  const auto expectExit = [&](pid_t which) {
    int status = -1;
    ASSERT_EQ(waitpid(which, &status, 0), which);
    EXPECT_TRUE(WIFEXITED(status)) << status;
  };
  // On the host's own thread, which has the rest of `track` before it.
  tracker.setRefreshTriggersWithHandler({{"trigger"}}, forkHere);
  for (int i = 0; i < 20; ++i) {
    tracker.track("trigger");
    if (child == 0) _exit(0);
    expectExit(child);
  }
  isOver = true;
  user.join();
  // On the library's, which ends in the child, and the child with it.
  std::promise<void> called;
  tracker.track("F", {}, [&](bool) {
    forkHere();
    if (child != 0) called.set_value();
  });
  called.get_future().wait();
  expectExit(child);
}

TEST_F(HostFaults, ACallbackMayEndItsThread) {
  static std::atomic<bool> hasReturned{false};
  Veltrano::shared().setRefreshTriggersWithHandler({{"trigger"}}, [] { pthread_exit(nullptr); });
  pthread_t thread;
  const auto track = [](void*) -> void* {
    Veltrano::shared().track("trigger");
    hasReturned = true;
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, nullptr, track, nullptr), 0);
  EXPECT_EQ(pthread_join(thread, nullptr), 0);
  EXPECT_FALSE(hasReturned);
  std::promise<bool> outcome;
  Veltrano::shared().track("last", {}, [&](bool result) { outcome.set_value(result); });
  EXPECT_FALSE(outcome.get_future().get());
}

}  // namespace
}  // namespace veltrano::internal

// A host that misuses the library, on the POSIX platform, without a collection host.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <fstream>
#include <future>
#include <latch>
#include <memory>
#include <thread>
#include <vector>

#include "platform/posix/posix_services.h"
#include "platform/posix/system/background_thread.h"
#include "tests/support/failures.h"
#include "tracker/library.h"
#include "tracker/track_call.h"
#include "veltrano/veltrano.h"

namespace veltrano::internal {
namespace {

class HostFaults : public testing::Test {
 protected:
  HostFaults() {
    PosixOptions options = failures::refused();
    static const Installation installation = PosixPlatform::install(options);
    EXPECT_TRUE(installation) << installation.error;
    options.logSink = [](std::string_view) {};
    use(options);
    Veltrano::isLoggerEnabled = true;
  }

  // Gives the case a library of its own. None is destroyed, because its threads keep running.
  static void use(const PosixOptions& options, ZKURLSessionManager* network = nullptr) {
    Platform platform = (new PosixServices(options))->platform();
    if (network != nullptr) platform.urlSession = network;
    static auto& replaced = *new std::vector<Library*>;
    replaced.push_back(Library::exchangeCurrent(new Library(platform)));
  }

  // Runs `work` on `count` threads that start together.
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

  static Statistics expectBalance() {
    const Statistics s = Veltrano::shared().statistics();
    EXPECT_EQ(s.recorded, s.waiting + s.inFlight + s.delivered + s.dropped());
    return s;
  }

  // The outcome of an event that is tracked now.
  static bool trackLast() {
    std::promise<bool> outcome;
    Veltrano::shared().track("last", {}, [&](bool result) { outcome.set_value(result); });
    return outcome.get_future().get();
  }

  // Waits for a child to end well.
  static void expectExit(pid_t child) {
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }

  // Ends with the thread.
  template <class Work>
  static void runOnThread(const Work& work) {
    bool hasReturned = false;
    std::thread([&] {
      work();
      hasReturned = true;
    }).join();
    EXPECT_FALSE(hasReturned) << "the thread should have ended";
  }
};

struct TracksAtTheEnd {
  ~TracksAtTheEnd() { Veltrano::shared().track("Ended", {{"text", std::string(5000, 'e')}}); }
};

TEST_F(HostFaults, ManyThreadsTrackWhileEveryUploadFails) {
  constexpr int kThreads = 16;
  constexpr int kCallsPerThread = 100'000 / kThreads / VELTRANO_STRIDE;
  auto& tracker = Veltrano::shared();
  // A handler may use the tracker, replace itself and throw.
  tracker.setRefreshTriggersWithHandler({{"trigger"}}, [&] {
    tracker.track("inner");
    tracker.setRefreshTriggersWithHandler({{"inner"}}, [&] { tracker.track("innermost"); });
    throw 1;
  });
  for (const char* name : {"trigger", "inner"}) tracker.track(name);
  runTogether(kThreads, [&](int i) {
    thread_local TracksAtTheEnd end;  // tracks once more as the thread ends
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
  EXPECT_EQ(last.recorded, kThreads * (kCallsPerThread + 1U) + 6);
  EXPECT_EQ(last.waiting, 200U);
  EXPECT_EQ(last.droppedByTrimming, last.recorded - 200);
  EXPECT_NE(Veltrano::status().find(" dropped, because more than 200 waited\n"), std::string::npos);
}

TEST_F(HostFaults, AThreadSwitchesCollectingWhileOthersTrackFromTheFirstTouchOn) {
  runTogether(4, [&](int i) {
    auto& tracker = Veltrano::shared();
    tracker.setUserId("user-" + std::to_string(i));
    for (int n = 0; n < 5000; ++n) {
      if (i < 2)
        tracker.setCollecting(n % 2 == i);
      else
        tracker.track("E", {}, [](bool) {});
      if (n % 100 == 0) expectBalance();
    }
  });
  auto& tracker = Veltrano::shared();
  tracker.setCollecting(true);
  tracker.track("E");  // at least this one is dropped by the switch
  tracker.setCollecting(false);
  tracker.setCollecting(true);
  EXPECT_FALSE(trackLast());
  const Statistics last = expectBalance();
  EXPECT_EQ(last.waiting, 1U);
  EXPECT_GT(last.droppedByOptOut, 0U);
}

TEST_F(HostFaults, ACallbackMayForkAndGoOnInTheChild) {
  auto& tracker = Veltrano::shared();
  std::atomic<bool> isOver{false};
  std::thread user([&] {
    while (!isOver) tracker.track("E");
  });
  std::atomic<pid_t> child{-1};
  const auto forkHere = [&] {
    child = fork();
    if (child == 0) alarm(20);
  };
  // On the host's thread, in the middle of `track`.
  tracker.setRefreshTriggersWithHandler({{"trigger"}}, forkHere);
  for (int i = 0; i < 20; ++i) {
    tracker.track("trigger");
    if (child == 0) _exit(0);
    expectExit(child);
  }
  isOver = true;
  user.join();
  // On the library's thread, which then destroys the completion.
  std::promise<void> destroyed;
  const auto leave = [&](void*) {
    if (child == 0) _exit(0);
    destroyed.set_value();
  };
  child = -1;
  tracker.track("F", {},
                [&, witness = std::shared_ptr<void>(nullptr, leave)](bool) { forkHere(); });
  destroyed.get_future().wait();
  expectExit(child);
}

TEST_F(HostFaults, ACallbackMayEndItsThread) {
  Veltrano::shared().setRefreshTriggersWithHandler({{"trigger"}}, [] { pthread_exit(nullptr); });
  runOnThread([] { Veltrano::shared().track("trigger"); });
  // The library replaces its work queue's thread.
  Veltrano::shared().track("E", {}, [](bool) { pthread_exit(nullptr); });
  EXPECT_FALSE(trackLast());
}

// Accepts every post, on a new thread, once it does not hang any more.
struct AcceptingNetwork final : ZKURLSessionManager {
  void postData(PostRequest, URLSessionCallback callback) override {
    startBackgroundThread("network", [this, callback = std::move(callback)] {
      isHanging.wait(true);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));  // makes the queue wait
      callback("", URLResponse{200}, std::nullopt);
    });
  }

  std::atomic<bool> isHanging{false};
};

std::size_t residentMemory() {
  std::size_t size = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST_F(HostFaults, CallsWaitForAHangingUploadInBoundedMemory) {
  constexpr int kThreads = 8;
  constexpr int kCallsPerThread = 100'000;
  static AcceptingNetwork network;
  network.isHanging = true;
  use({}, &network);
  Veltrano::isLoggerEnabled = false;
  auto& tracker = Veltrano::shared();
  tracker.track("first", {}, [](bool) {});
  while (tracker.statistics().inFlight == 0) std::this_thread::yield();

  const std::size_t before = residentMemory();
  tracker.removeSuperProperty(std::string(WaitingMemory::kLimit * 5 / 8, 'k'));
  // Of sizes that fill the memory of a call, need more of the same and need their own.
  runTogether(kThreads, [&](int i) {
    const std::string text(std::array{4, 400, 5000}[i % 3], 'x');
    for (int n = 0; n < kCallsPerThread; ++n)
      tracker.track("E", {{"thread", i}, {"n", n}, {"plan", "pro"}, {"store", text}});
  });
  const std::size_t growth = residentMemory() - before;
  EXPECT_GT(growth, WaitingMemory::kLimit / 2);
#ifndef VELTRANO_SANITIZED  // sanitizers need memory of their own
  EXPECT_LT(growth, WaitingMemory::kLimit * 3 / 2);
#endif
  const auto dropped = tracker.statistics().droppedByBacklog;
  EXPECT_GT(dropped, 0U);

  std::promise<bool> outcome;  // never dropped
  tracker.track("last", {}, [&](bool wasDelivered) { outcome.set_value(wasDelivered); });
  network.isHanging = false;
  network.isHanging.notify_all();
  EXPECT_TRUE(outcome.get_future().get());
  const Statistics counts = expectBalance();
  EXPECT_EQ(counts.recorded, kThreads * kCallsPerThread + 2U);
  EXPECT_EQ(counts.droppedByBacklog, dropped);
}

// The library is started on a thread that its first, second or third line ends.
TEST_F(HostFaults, ALogSinkMayEndTheThreadThatStartsTheLibrary) {
  for (int line = 0; line < 3; ++line) {
    PosixOptions options = failures::refused();
    options.logSink = [left = std::make_shared<int>(line)](std::string_view) {
      if ((*left)-- == 0) pthread_exit(nullptr);
    };
    use(options);
    runOnThread([] { Veltrano::shared(); });
    const std::string status = Veltrano::status();
    EXPECT_NE(status.find("Next flush: in "), std::string::npos) << line << ": " << status;
  }
}

// For each line that the library's threads log during an upload, ends the thread at that line. The
// upload must still finish and be counted.
TEST_F(HostFaults, ALogSinkMayEndItsThreadAtAnyLine) {
  static AcceptingNetwork network;
  bool hasEndedOne = true;
  int line = 0;
  for (; hasEndedOne; ++line) {
    auto& linesLeft = *new std::atomic<int>(line);  // leaked, because the threads keep running
    auto& isOver = *new std::atomic<bool>(false);   // a thread has ended, or the completion came
    PosixOptions options;
    options.logSink = [&linesLeft, &isOver](std::string_view) {
      if (isOver || !HostCode::isLibraryThread || linesLeft-- != 0) return;
      isOver = true;
      pthread_exit(nullptr);
    };
    use(options, &network);
    auto& tracker = Veltrano::shared();
    tracker.track("first", {}, [&](bool) { isOver = true; });
    while (!isOver) std::this_thread::yield();
    hasEndedOne = linesLeft < 0;
    EXPECT_TRUE(trackLast());
    const Statistics counts = tracker.statistics();
    EXPECT_EQ(counts.recorded, 2U) << "ended at line " << line;
    EXPECT_EQ(counts.delivered, 2U) << "ended at line " << line;
    EXPECT_EQ(counts.uploadsAttempted, counts.uploadsSucceeded) << "ended at line " << line;
  }
  EXPECT_GT(line, 10);
}

}  // namespace
}  // namespace veltrano::internal

// The library when memory runs out: drops and counts what it cannot store, and keeps working.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <latch>
#include <string>
#include <thread>

#include "platform/posix/posix_services.h"
#include "tests/support/failures.h"
#include "tests/support/posting.h"
#include "tracker/library.h"
#include "veltrano/veltrano.h"

namespace veltrano::internal {
namespace {

using failures::runAsLibrary, failures::runWithout;

const HostMap kProperties = {{"plan", "a text that is too long to be stored in place"},
                             {"tags", {"a", "b", 3}},
                             {"extra_json", {{"nested", {{"deeply", true}}}}}};

// Installs the platform, starts the library and uses it on a new thread. Runs in a child process.
int installWithout(int first, int count) {
  PosixOptions options = failures::refused();
  options.infoDictionary = HostMap{{"CFBundleShortVersionString", "1.2.3"}};
  options.carrierName = "a name that is too long to be stored in place";
  bool isInstalled = false;
  runWithout(first, count, [&, given = options]() mutable {
    isInstalled = bool(PosixPlatform::install(std::move(given)));
    if (isInstalled) Veltrano::shared();
  });
  if (!isInstalled) {
    failures::stopFailing();
    if (!PosixPlatform::install(options)) return 1;
  }
  auto& tracker = Veltrano::shared();
  std::thread([&] {
    runAsLibrary([&] {
      for (int i = 0; i < 3; ++i) tracker.track("E", kProperties);
      RunLoop::current().perform([] {});
    });
  }).join();
  const bool hasFailed = failures::stopFailing();
  tracker.track("last", kProperties);
  while (tracker.statistics().recorded < 4 || tracker.statistics().waiting == 0)
    std::this_thread::yield();
  return hasFailed ? 0 : 2;
}

// Shuts the library down, long before the deadline. Runs in a child process.
int shutDownWithout(int first, int count) {
  const auto installation = PosixPlatform::install(failures::refused());
  Veltrano::shared();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::hours(1);
  bool isComplete = false;
  runWithout(first, count, [&] { isComplete = installation.platform->shutDown(deadline); });
  if (failures::stopFailing()) return 0;
  return isComplete ? 2 : 1;
}

// Runs `work` in a child process for each allocation that can fail. It returns 0, or 2 once none
// has failed.
void failEachAllocation(int (*work)(int first, int count)) {
  for (const int count : {1, 3}) {
    int status = 0;
    const auto hasEnded = [&](int its) { return (status = its) == 0 || its == 2 << 8; };
    for (int first = 0; status == 0; first += count * VELTRANO_STRIDE)
      ASSERT_EXIT((alarm(30), _exit(work(first, count))), hasEnded, "")
          << count << " from " << first;
  }
}

// These run first: the children must not inherit a platform.
TEST(MemoryTest, AnInstallationAndAFirstTouchThatFailAreTriedAgain) {
  failEachAllocation(installWithout);
}

TEST(MemoryTest, AShutdownDoesNotWaitInVain) {
  failEachAllocation(shutDownWithout);
}

// Runs a host in a process of its own for each amount of memory that its installation may take, and
// for a sample of the allocations that may fail until its first event has been delivered.
TEST(MemoryTest, AHostThatStartsWithTooLittleMemoryDeliversLater) {
#ifdef VELTRANO_SANITIZED
  GTEST_SKIP() << "The host replaces malloc, as the sanitizer does.";
#else
  TLSServer server(accept);
  const std::string command =
      "exec '" STARTING_HOST "' 127.0.0.1:" + std::to_string(server.port()) + " '";
  const auto start = [&](const char* limit, int count) {
    const int status = std::system(
        (command + server.authorities() + "' " + limit + " " + std::to_string(count)).c_str());
    // 2: there was enough memory.
    EXPECT_TRUE(status == 0 || status == 2 << 8) << status << " with " << limit << " " << count;
    return status == 0;
  };
  for (int bytes = 0; start("bytes", bytes);) bytes += 32 * 1024;
  // The first ones are OpenSSL's most delicate.
  for (int number = 0; start("allocation", number);) number += number < 45 ? 1 : 503;
#endif
}

// A timer that fires on request.
struct ManualTimers final : Timers {
  std::shared_ptr<Timer> schedule(Duration, Duration, std::function<void()> work) override {
    auto timer = std::make_shared<Timer>();
    action = std::move(work);
    return timer;
  }
  void fire() {
    try {
      const auto due = action;
      due();
    } catch (const std::bad_alloc&) {
      // It fires again later.
    }
  }
  std::function<void()> action = [] {};
};

TEST(MemoryTest, WhicheverAllocationFailsTheRestGoesOn) {
  if (VELTRANO_PORTABLE) GTEST_SKIP() << "The library's threads are recognised by their names.";
  TLSServer server([](int) { return answer("200 OK", "{\"back_off_seconds\":20}"); });
  PosixOptions options;
  options.collectionHost = "127.0.0.1:" + std::to_string(server.port());
  options.logSink = [](std::string_view) {};
  auto& timers = *new ManualTimers;
  Platform platform = (new PosixServices(options))->platform();
  platform.timers = &timers;
  platform.urlSession = new PosixURLSession(trusting(server.authorities()));
  Library::exchangeCurrent(new Library(platform));
  auto& tracker = Veltrano::shared();

  std::uint64_t calls = 0;
  const std::pair<int, bool> rounds[] = {{1, false}, {3, false}, {1, true}, {3, true}};
  for (const auto& [count, logs] : rounds) {
    Veltrano::isLoggerEnabled = logs;
    bool hasFailed = true;
    for (int first = 0; hasFailed && !HasFailure(); first += VELTRANO_STRIDE) {
      std::latch isOver(1);
      auto whenOver = std::shared_ptr<void>(nullptr, [&](void*) { isOver.count_down(); });
      Veltrano::FlushCompletion completion = [whenOver = std::move(whenOver)](bool) {};
      const std::string uid = "a user of a long name " + std::to_string(first);
      runWithout(first, count, [&] {
        tracker.setSuperProperties(kProperties);
        tracker.removeSuperProperty("tags");
        tracker.setUserId(uid);
        timers.fire();
        tracker.track("E", kProperties, std::move(completion));
      });
      completion = nullptr;
      isOver.wait();
      hasFailed = failures::stopFailing();
      EXPECT_EQ(Veltrano::status().find("foreground"), std::string::npos) << "at " << first;

      tracker.setUserId(uid);
      timers.fire();
      std::promise<bool> outcome;
      tracker.track("E", kProperties, [&](bool wasAccepted) { outcome.set_value(wasAccepted); });
      EXPECT_TRUE(outcome.get_future().get()) << "after " << first;
      calls += 2;
      const Statistics now = tracker.statistics();
      EXPECT_EQ(now.recorded, now.waiting + now.inFlight + now.delivered + now.dropped()) << first;
    }
  }
  const Statistics last = tracker.statistics();
  EXPECT_GE(last.recorded, calls);
  EXPECT_EQ(last.recorded, last.delivered + last.droppedForMemory + last.waiting)
      << Veltrano::status();
  EXPECT_GT(last.droppedForMemory, 0U);
  EXPECT_GT(last.uploadsFailedForMemory, 0U);
  EXPECT_GT(last.heartbeatsSent, calls / 2);
}

}  // namespace
}  // namespace veltrano::internal

// Shutting the library down. Each case runs in its own process, because a shutdown is permanent.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <latch>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/posting.h"
#include "veltrano/posix_platform.h"
#include "veltrano/veltrano.h"

namespace veltrano::internal {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

// A host and its collection host. Live as long as the process.
struct Host {
  explicit Host(TLSServer::Handler handler) : server(new TLSServer(std::move(handler))) {
    PosixOptions options;
    options.collectionHost = "127.0.0.1:" + std::to_string(server->port());
    options.certificateAuthorities = server->authorities();
    options.logSink = [this](std::string_view line) {
      ++callbacks;
      onLine(line);
    };
    options.onTransfer = [this](const TransferReport& report) { onTransfer(report); };
    platform = PosixPlatform::install(std::move(options)).platform;
    Veltrano::isLoggerEnabled = true;
  }

  bool shutDown(Clock::duration time = seconds(30)) {
    return platform->shutDown(Clock::now() + time);
  }

  std::atomic<int> callbacks{0};
  std::function<void(std::string_view)> onLine = [](std::string_view) {};
  std::function<void(const TransferReport&)> onTransfer = [](const TransferReport&) {};
  std::unique_ptr<TLSServer> server;
  PosixPlatform* platform = nullptr;
};

Host& host(const TLSServer::Handler& handler = accept) {
  static auto& only = *new Host(handler);
  return only;
}

void expect(bool condition, const char* what) {
  if (condition) return;
  std::cerr << "failed: " << what << std::endl;
  std::_Exit(1);
}

// How many events the shutdown left. All of them are counted once.
std::uint64_t left() {
  const Statistics last = Veltrano::shared().statistics();
  expect(last.recorded == last.delivered + last.dropped(), "nothing waits any more");
  return last.droppedByShutDown;
}

// Returns once a heartbeat is under way.
void beat() {
  Veltrano::shared().setUserId("user");
  while (host().server->requests().empty())
    host().platform->mainRunLoop().runUntil(Clock::now() + std::chrono::milliseconds(10));
}

bool isSendingNothingMore() {
  return Veltrano::status().starts_with("Nothing is sent");
}

// Shuts down on two threads. Any reply comes too late for one of the deadlines.
void shutDownTwice(const std::function<bool()>& firstHasBegun, seconds time, seconds otherTime) {
  std::jthread first([&] { expect(!host().shutDown(time), "something was left"); });
  while (!firstHasBegun()) std::this_thread::yield();
  expect(!host().shutDown(otherTime), "the second call has the result of the first");
}

class ShutDown : public testing::Test {
 protected:
  ShutDown() { testing::GTEST_FLAG(death_test_style) = "threadsafe"; }

  // The case must exit by itself with `status`, before any request times out.
  static void expectExit(void (*work)(), int status = 0, int line = __builtin_LINE()) {
    const auto limited = [&] {
      alarm(25);
      work();
      host().server.reset();
      std::exit(0);
    };
    EXPECT_EXIT(limited(), testing::ExitedWithCode(status), "") << "at line " << line;
  }
};

TEST_F(ShutDown, DeliversWhatWaitsAndLeavesAnInertLibrary) {
  expectExit([] {
    Host& it = host();
    auto& tracker = Veltrano::shared();
    int refusals = 0;
    // What the host keeps in a callback may shut down in its destructor.
    const auto shutDownAgain = [&](void*) { refusals += it.shutDown() ? 100 : 1; };
    auto held = std::shared_ptr<void>(nullptr, shutDownAgain);
    tracker.setUserId("user");  // schedules a heartbeat
    tracker.setRefreshTriggersWithHandler({{"trigger"}},
                                          [held = std::move(held)] { ++host().callbacks; });
    for (int i = 0; i < 3; ++i) tracker.track("E", {{"number", i}});
    expect(it.shutDown(), "it was complete");
    const Statistics last = tracker.statistics();
    expect(last.recorded == 3 && last.delivered == 3, "everything was delivered");
    expect(it.server->requests().size() == 1, "it took one request");
    expect(refusals == 1, "the handler was released");
    expect(Veltrano::status().find("Last request to /track: status 200\n") != std::string::npos,
           "the status still tells of the last request");

    const int callbacks = it.callbacks;
    held = std::make_shared<int>();
    tracker.setRefreshTriggersWithHandler({{"trigger"}}, [] { ++host().callbacks; });
    tracker.track("trigger", {}, [held](bool) { ++host().callbacks; });
    it.platform->applicationWillEnterForeground();
    it.platform->applicationDidBecomeActive();
    RunLoop& loop = it.platform->mainRunLoop();
    loop.perform([&] { loop.stop(); });
    expect(loop.runUntil(Clock::now() + seconds(20)), "the run loop goes on");
    expect(it.callbacks == callbacks && held.use_count() == 1, "nothing was called back");
    expect(tracker.statistics().recorded == 3, "the statistics are the last");
    expect(PosixPlatform::install({}).error.ends_with("already."), "another platform was refused");
    expect(it.shutDown(), "the second call answers as the first");
  });
}

// The work queue decides on a forced flush in the foreground and schedules it after the final one.
TEST_F(ShutDown, SendsAFlushThatReplacesTheFinalOne) {
  expectExit([] {
    Host& it = host();
    std::latch isForcing(1);
    std::atomic<bool> isInBackground{false};
    const auto mainThread = std::this_thread::get_id();
    it.onLine = [&](std::string_view line) {
      if (std::this_thread::get_id() == mainThread) {
        if (isForcing.try_wait()) isInBackground = true;
        return;
      }
      if (line.find("| Forcing a flush right now") != line.npos) {
        isForcing.count_down();
        while (!isInBackground) std::this_thread::yield();
      }
      // Long enough for the shutdown to overtake each step of the work queue.
      if (isInBackground) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    };
    std::atomic<int> outcomes{0};
    Veltrano::shared().track("E", {}, [&](bool wasDelivered) {
      outcomes += wasDelivered ? 1 : 9;
      Veltrano::shared().track("F");
    });
    isForcing.wait();
    expect(it.shutDown(), "it was complete");
    expect(Veltrano::shared().statistics().delivered == 2,
           "the event was delivered, and what its completion tracked");
    expect(outcomes == 1, "the completion was called");
  });
}

TEST_F(ShutDown, TriesAgainUntilItsDeadline) {
  expectExit([] {  // the host asks for more time than is left, before and during the shutdown
    Host& it = host([](int number) {
      return number < 3 ? answer("503 Busy", "", "Retry-After: 28\r\n") : answer("200 OK");
    });
    std::latch isPutOff(1);
    it.onTransfer = [&](const TransferReport& report) {
      if (report.attempt == 1) isPutOff.count_down();
    };
    Veltrano::shared().track("E", {}, [](bool) {});
    isPutOff.wait();
    expect(it.shutDown(), "it was complete");
    expect(it.server->requests().size() == 3, "it took three requests");
  });
  expectExit([] {  // the application returns meanwhile, which changes nothing
    Host& it = host([](int) { return answer("404 None"); });
    it.onLine = [](std::string_view line) {
      expect(!line.ends_with("App becoming active!"), "no report was announced");
    };
    Veltrano::shared().track("E");
    std::jthread other([&] { expect(!it.shutDown(), "the event was left"); });
    while (it.server->requests().empty()) std::this_thread::yield();
    it.platform->applicationWillEnterForeground();
    while (it.server->requests().size() < 2) std::this_thread::yield();  // it tries again
    it.shutDown(seconds(0));
    other.join();
    expect(left() == 1, "the event is counted");
  });
}

TEST_F(ShutDown, EndsAtItsDeadlineWhateverHangs) {
  expectExit([] {  // the collection host hangs
    Host& it = host([](int) { return TLSReply{}; });
    auto& tracker = Veltrano::shared();
    const auto held = std::make_shared<int>();
    std::atomic<int> outcomes{0};
    tracker.track("E", {},
                  [held, &outcomes](bool wasDelivered) { outcomes += wasDelivered ? 9 : 1; });
    while (it.server->requests().empty()) std::this_thread::yield();
    tracker.track("F", {}, [held, &outcomes](bool) { outcomes += 9; });
    expect(!it.shutDown(std::chrono::milliseconds(100)), "something was left");
    while (held.use_count() > 1) std::this_thread::yield();
    expect(outcomes == 1, "one completion was called, the other released");
    expect(left() == 2, "the upload was given up, and what was not recorded yet");
  });
  expectExit([] {  // a completion hangs
    Host& it = host();
    std::latch isRunning(1);
    Veltrano::shared().track("E", {}, [&](bool) {
      isRunning.count_down();
      for (;;) pause();
    });
    isRunning.wait();
    expect(!it.shutDown(std::chrono::milliseconds(100)), "something was left");
  });
  // The function that gets the report on the upload hangs, whether the collection host answers or
  // hangs, too.
  static constexpr auto hangInReports = [](const TLSServer::Handler& handler) {
    Host& it = host(handler);
    it.onTransfer = [](const TransferReport&) {
      for (;;) pause();
    };
    const auto held = std::make_shared<int>();
    Veltrano::shared().track("E", {}, [held](bool) {});
    expect(!it.shutDown(std::chrono::milliseconds(100)), "something was left");
    while (held.use_count() > 1) std::this_thread::yield();  // the completion is released
    expect(left() == 1, "the upload was given up");
  };
  expectExit([] { hangInReports(accept); });
  expectExit([] { hangInReports([](int) { return TLSReply{}; }); });
}

TEST_F(ShutDown, WithADeadlineThatHasPassedSendsAndForgetsNothing) {
  expectExit([] {
    Host& it = host();
    for (int i = 0; i < 9; ++i) Veltrano::shared().track("E");  // one less than are flushed
    expect(!it.shutDown(seconds(0)), "something was left");
    expect(it.server->requests().empty(), "nothing was sent");
    // They are counted behind the log sink, which may be running.
    while (Veltrano::shared().statistics().droppedByShutDown < 9) std::this_thread::yield();
    expect(left() == 9, "all events are counted");
    const std::string status = Veltrano::status();
    expect(status.starts_with("Nothing is sent: the library was shut down.\nEvents: 9 recorded; "
                              "9 dropped, because the library was shut down\n"),
           status.c_str());
  });
}

TEST_F(ShutDown, EndsAtTheEarliestDeadline) {
  static constexpr auto shutDownInFlush = [](seconds time, seconds otherTime) {
    Host& it = host([](int) { return TLSReply{}; });
    Veltrano::shared().track("E");
    shutDownTwice([&] { return !it.server->requests().empty() || isSendingNothingMore(); }, time,
                  otherTime);
  };
  expectExit([] { shutDownInFlush(seconds(60), seconds(0)); });
  expectExit([] { shutDownInFlush(seconds(1), seconds(60)); });
  expectExit([] {  // while the first one waits for a heartbeat
    host([](int) { return TLSReply{}; });
    beat();
    shutDownTwice(isSendingNothingMore, seconds(60), seconds(0));
  });
}

TEST_F(ShutDown, IsForAnyThreadButNoCallback) {
  expectExit([] {
    Host& it = host([](int number) {
      while (number == 1 && !isSendingNothingMore()) std::this_thread::yield();
      return answer("200 OK");
    });
    std::atomic<int> refusals{0}, answers{0}, arrived{0};
    it.onTransfer = [&](const TransferReport& report) { arrived += report.status == 200; };
    it.onLine = [&](std::string_view) { refusals += it.shutDown() ? 100'000 : 1; };
    beat();  // the shutdown lets it end
    auto& tracker = Veltrano::shared();
    const auto refuse = [&] { refusals += it.shutDown() ? 100'000 : 1; };
    tracker.setRefreshTriggersWithHandler({{"E"}}, refuse);
    std::latch isOver(1);
    // A completion is destroyed on a thread of the library, too.
    auto witness = std::shared_ptr<void>(nullptr, [&](void*) {
      refuse();
      isOver.count_down();
    });
    tracker.track("E", {}, [&, witness = std::move(witness)](bool) { refuse(); });
    isOver.wait();
    {
      std::vector<std::jthread> threads;
      for (int i = 0; i < 4; ++i) threads.emplace_back([&] { answers += it.shutDown() ? 1 : 0; });
    }
    expect(refusals > 3 && refusals < 100'000, "callbacks were refused");
    expect(answers == 4, "all threads got the answer");
    expect(arrived == 2, "the upload and the heartbeat arrived");
  });
}

struct AtExit {
  ~AtExit() {
    Veltrano::shared().track("at exit");
    std::_Exit(host().shutDown() ? 3 : 4);
  }
};

TEST_F(ShutDown, AStaticDestructorMayCallIt) {
  expectExit(
      [] {
        host();
        static const AtExit younger;
        std::exit(0);
      },
      3);
  expectExit(
      [] {
        static const AtExit older;  // destroyed when nothing can be sent any more
        host();
        std::exit(0);
      },
      4);
}

}  // namespace
}  // namespace veltrano::internal

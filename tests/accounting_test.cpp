// Compares the library's statistics with what the network saw.
#include <gtest/gtest.h>

#include <random>

#include "tests/support/simulation.h"

namespace veltrano::internal {
namespace {

void expectBalance(const Statistics& s) {
  ASSERT_EQ(s.recorded, s.waiting + s.inFlight + s.delivered + s.dropped());
}

class AccountingTest : public testing::TestWithParam<unsigned> {
 protected:
  AccountingTest() {
    const auto noteSent = simulation.platform.network.onPost;
    simulation.platform.network.onPost = [this, noteSent](const PostRequest& request) {
      noteSent(request);
      const Statistics now = Veltrano::shared().statistics();
      expectBalance(now);
      const Json& body = simulation.posts.back().body;
      const auto count = body.IsArray() ? body.Size() : 0;  // 0: a heartbeat
      if (count > 0 && now.droppedByShutDown == 0) {
        EXPECT_EQ(now.inFlight, count);
        EXPECT_EQ(now.waiting, 0U);
      }
      ++(count > 0 ? seen.uploadsAttempted : seen.heartbeatsSent);
      seen.inFlight += count;
      const SimulatedAnswer& answer = simulation.platform.network.answers[request.path()];
      const int status = answer.kind == SimulatedAnswer::Kind::http ? answer.status : 0;
      simulation.platform.timeline.schedule(answer.latency,
                                            [this, count, status] { note(count, status); });
    };
  }

  // The end of a post with `count` events; 0 is a heartbeat.
  void note(std::size_t count, int status) {
    seen.inFlight -= count;
    if (count == 0) {
      seen.heartbeatsFailed += status / 100 != 2;
    } else if (status == 200) {
      ++seen.uploadsSucceeded;
      seen.delivered += count;
    } else {
      ++(status == 0 ? seen.uploadsFailedInTransport : seen.uploadsFailedByStatus);
      if (status == 400) seen.droppedAsRefused += count;
    }
  }

  void step() {
    static constexpr std::string_view kNames[] = {kApplicationDidEnterBackground,
                                                  kApplicationWillEnterForeground,
                                                  kApplicationDidBecomeActive};
    const auto pick = random() % 12;
    if (pick < 2) {
      constexpr int kStatuses[] = {200, 200, 200, 400, 503, 204, 0, 0};
      const int status = kStatuses[random() % std::size(kStatuses)];
      simulation.answer(pick == 0 ? "/track" : "/heartbeat",
                        {.kind = status != 0 ? SimulatedAnswer::Kind::http
                                             : SimulatedAnswer::Kind::transportError,
                         .status = status,
                         .latency = std::chrono::milliseconds(random() % 3000)});
    } else if (pick == 2) {
      simulation.platform.notificationCenter.post(std::string(kNames[random() % 3]));
    } else if (pick < 5) {
      simulation.runUntil(simulation.now() + random() % 15);
    } else {
      const HostMap properties = pick == 5 ? HostMap{{"map", Dictionary({{1, 2}})}} : HostMap();
      Veltrano::FlushCompletion completion;
      if (pick == 6) completion = [](bool) { expectBalance(Veltrano::shared().statistics()); };
      for (auto i = pick == 7 ? random() % 300 : 1; i > 0; --i, ++tracked)
        Veltrano::shared().track("E", properties, completion);
    }
    simulation.settle();
  }

  // Compares with everything that the network has seen so far.
  void expectWhatWasSeen() {
    const Statistics s = Veltrano::shared().statistics();
    expectBalance(s);
    for (const auto count :
         {&Statistics::inFlight, &Statistics::delivered, &Statistics::droppedAsRefused,
          &Statistics::droppedForMemory, &Statistics::uploadsAttempted,
          &Statistics::uploadsSucceeded, &Statistics::uploadsFailedInTransport,
          &Statistics::uploadsFailedByStatus, &Statistics::heartbeatsSent,
          &Statistics::heartbeatsFailed})
      EXPECT_EQ(s.*count, seen.*count);
    EXPECT_LE(s.waiting, 200U);
    // Events tracked during an upload are recorded when it ends.
    const std::uint64_t calls = tracked + s.heartbeatsFailed;
    EXPECT_TRUE(s.inFlight == 0 ? s.recorded == calls : s.recorded <= calls);
  }

  std::mt19937 random{GetParam()};
  Simulation simulation;
  Statistics seen;
  std::uint64_t tracked = 0;
};

TEST_P(AccountingTest, AddsUpAfterEveryStep) {
  Veltrano::shared().setUserId("user");
  for (int i = 0; i < 400 && !HasFailure(); ++i) {
    step();
    expectWhatWasSeen();
  }
  // Once the collection host works again, nothing keeps waiting.
  simulation.answer("/track", {});
  simulation.answer("/heartbeat", {});
  simulation.platform.notificationCenter.post(std::string(kApplicationWillEnterForeground));
  simulation.runUntil(simulation.now() + 60);
  expectWhatWasSeen();
  const Statistics last = Veltrano::shared().statistics();
  EXPECT_EQ(last.waiting + last.inFlight, 0U);
  EXPECT_GT(last.droppedByTrimming, 0U);
  EXPECT_GT(last.droppedAsNotEncodable, 0U);

  // After a shutdown nothing waits, whatever still runs.
  Library::current().accounting().end();
  for (int i = 0; i < 100 && !HasFailure(); ++i) {
    step();
    const Statistics now = Veltrano::shared().statistics();
    expectBalance(now);
    EXPECT_EQ(now.waiting, 0U);
    EXPECT_LE(now.droppedByShutDown, now.recorded);
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, AccountingTest, testing::Range(1U, 21U));

TEST(Status, SaysWhyNothingArrives) {
  Library* const earlier = Library::exchangeCurrent(nullptr);
  const std::string withoutPlatform = Veltrano::status();
  EXPECT_EQ(Library::exchangeCurrent(earlier), nullptr) << "asking must not prevent installation";
  EXPECT_NE(withoutPlatform.find("no platform was installed"), std::string::npos);

  Simulation simulation;
  const auto expectStatus = [](const std::string& lines) {
    EXPECT_NE(Veltrano::status().find(lines), std::string::npos) << Veltrano::status();
  };
  expectStatus("Last request: none has ended yet\nNext flush: when the library is first used\n");
  Veltrano::shared().setUserId("user");
  Veltrano::shared().track("Bought");
  simulation.runUntil(5);
  expectStatus("Events: 1 recorded; 1 waiting\nUploads: 0 attempted");
  simulation.platform.clock.jump(std::chrono::hours(1));
  expectStatus("Next flush: in 15 s\n");

  simulation.answer("/track", {.status = 400, .latency = std::chrono::seconds(3)});
  simulation.runUntil(21);
  expectStatus("Next flush: after the upload in progress\n");
  simulation.runUntil(25);
  expectStatus("1 dropped, because the collection host answered with status 400\nUploads: 1");
  expectStatus(
      "Last request to /track: status 400, 2 s ago\n"
      "Last request to /heartbeat: status 200, 4 s ago\nNext flush: ");

  Veltrano::shared().track("Late");
  simulation.platform.notificationCenter.post(std::string(kApplicationDidEnterBackground));
  simulation.runUntil(40);
  expectStatus("Next flush: when the application returns to the foreground\n");

  Veltrano::shared().track("Left");
  Veltrano::shared().setCollecting(false);
  simulation.settle();
  expectStatus("1 dropped, because collecting was switched off\n");
  expectStatus("Next flush: when collecting is switched on\n");
}

}  // namespace
}  // namespace veltrano::internal

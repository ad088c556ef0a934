// What every platform promises, checked on the real one and on the simulated one alike.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/posix/notification_center.h"
#include "platform/posix/run_loop.h"
#include "platform/posix/user_defaults.h"
#include "platform/posix/work_queue.h"
#include "platform/simulated/simulated_platform.h"

namespace veltrano {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;

// A platform and a way to let time pass in it: `runUntilDone` returns once somebody has called
// `done`, on whatever thread.
struct PosixWorld {
  void done() { runLoop->stop(); }
  void runUntilDone() {
    ASSERT_TRUE(runLoop->runUntil(std::chrono::steady_clock::now() + std::chrono::seconds(30)));
  }

  std::shared_ptr<PosixRunLoop> runLoop = PosixRunLoop::ofThisThread();
  WorkQueue& makeQueue() { return PosixDispatch().makeSerialQueue("contract"); }
  PosixTimers timers;
  PosixNotificationCenter notificationCenter;
  PosixUserDefaults defaults{""};
};

struct SimulatedWorld {
  void done() { isDone = true; }
  void runUntilDone() {
    platform.timeline.runUntil(platform.timeline.now() + std::chrono::seconds(30));
    ASSERT_TRUE(isDone);
  }

  bool isDone = false;
  SimulatedPlatform platform;
  WorkQueue& makeQueue() { return platform.dispatch.makeSerialQueue("contract"); }
  SimulatedTimers& timers = platform.timers;
  SimulatedNotificationCenter& notificationCenter = platform.notificationCenter;
  SimulatedDefaults& defaults = platform.defaults;
};

template <class World>
class PlatformContract : public testing::Test {
 protected:
  using Log = std::vector<std::string>;

  std::function<void()> note(std::string what) {
    return [this, what] { log.push_back(what); };
  }
  std::shared_ptr<WorkItem> item(std::string what) {
    return std::make_shared<WorkItem>(note(std::move(what)));
  }
  std::shared_ptr<WorkItem> lastItem() {
    return std::make_shared<WorkItem>([this] { world.done(); });
  }

  World world;
  Log log;
};

using Worlds = testing::Types<PosixWorld, SimulatedWorld>;
TYPED_TEST_SUITE(PlatformContract, Worlds);

TYPED_TEST(PlatformContract, BlocksRunOneAtATimeInTheOrderOfSubmission) {
  auto& queue = this->world.makeQueue();
  constexpr int kBlocks = 1000;
  std::vector<int> order;
  bool isRunning = false;
  int overlaps = 0;
  const auto run = [&](int number) {
    overlaps += isRunning ? 1 : 0;
    isRunning = true;
    order.push_back(number);
    // Submitting from a block neither runs the new block here nor lets it pass those that wait.
    if (number == 0) queue.async([&] { order.push_back(kBlocks); });
    isRunning = false;
  };
  // From a block, so that all of them wait before the first runs.
  queue.async([&] {
    for (int i = 0; i < kBlocks; ++i) queue.async([&run, i] { run(i); });
    queue.asyncAfter(milliseconds(5), this->lastItem());
  });
  this->world.runUntilDone();

  ASSERT_EQ(order.size(), kBlocks + 1u);
  for (int i = 0; i <= kBlocks; ++i) EXPECT_EQ(order[i], i);
  EXPECT_EQ(overlaps, 0);
}

TYPED_TEST(PlatformContract, DelayedItemsRunByDueTimeThenInTheOrderOfScheduling) {
  auto& queue = this->world.makeQueue();
  queue.async([&] {
    queue.asyncAfter(milliseconds(60), this->lastItem());
    queue.asyncAfter(milliseconds(40), this->item("40"));
    for (int i = 0; i < 20; ++i)
      queue.asyncAfter(milliseconds(20), this->item("20." + std::to_string(i)));
    queue.asyncAfter(hours(24 * 365 * 250), this->item("never"));
    queue.asyncAfter(Duration::max(), this->item("never"));
    queue.asyncAfter(Duration(0), this->item("now"));
    queue.async(this->note("block"));
    queue.asyncAfter(Duration(-1), this->item("past"));
  });
  this->world.runUntilDone();

  std::vector<std::string> expected{"now", "block", "past"};
  for (int i = 0; i < 20; ++i) expected.push_back("20." + std::to_string(i));
  expected.push_back("40");
  EXPECT_EQ(this->log, expected);
}

TYPED_TEST(PlatformContract, CancellingStopsWhatHasNotStarted) {
  auto& queue = this->world.makeQueue();
  auto early = this->item("cancelled while pending");
  auto ready = this->item("cancelled by the block before");
  std::shared_ptr<WorkItem> itself;
  itself = std::make_shared<WorkItem>([&] {
    itself->cancel();
    this->log.push_back("went on");
  });
  queue.async([&] {
    queue.asyncAfter(milliseconds(1), early);
    queue.asyncAfter(Duration(0), ready);
    queue.asyncAfter(milliseconds(2), itself);
    queue.asyncAfter(milliseconds(10), this->lastItem());
    early->cancel();
    ready->cancel();
  });
  this->world.runUntilDone();
  EXPECT_EQ(this->log, typename TestFixture::Log{"went on"});
}

TYPED_TEST(PlatformContract, WaitingParksTheQueueUntilTheGroupIsEmpty) {
  auto& queue = this->world.makeQueue();
  auto group = std::make_shared<DispatchGroup>();
  group->enter();
  this->world.timers.schedule(milliseconds(20), Duration(0), [&, group] {
    this->log.push_back("left");
    group->leave();
  });
  queue.async([&, group] {
    queue.async(this->note("block"));
    queue.asyncAfter(milliseconds(1), this->item("delayed"));
    queue.wait(group, [&] {
      this->log.push_back("then");
      queue.wait(std::make_shared<DispatchGroup>(), this->note("empty group"));
    });
  });
  queue.asyncAfter(milliseconds(40), this->lastItem());
  this->world.runUntilDone();
  EXPECT_EQ(this->log,
            (typename TestFixture::Log{"left", "then", "empty group", "block", "delayed"}));
}

TYPED_TEST(PlatformContract, TimersFireOnceByDueTime) {
  auto& timers = this->world.timers;
  timers.schedule(milliseconds(60), Duration(0), [&] { this->world.done(); });
  timers.schedule(milliseconds(20), Duration(0), this->note("second"));
  timers.schedule(milliseconds(10), milliseconds(1), [&] {
    this->log.push_back("first");
    timers.schedule(milliseconds(15), Duration(0), this->note("from a timer"));
  });
  timers.schedule(Duration::max(), Duration::max(), this->note("never"));
  this->world.runUntilDone();
  EXPECT_EQ(this->log, (typename TestFixture::Log{"first", "second", "from a timer"}));
}

TYPED_TEST(PlatformContract, InvalidatedTimersDoNotFire) {
  auto& timers = this->world.timers;
  auto before = timers.schedule(milliseconds(1), Duration(0), this->note("invalidated"));
  auto meanwhile = timers.schedule(milliseconds(10), Duration(0), this->note("invalidated"));
  std::shared_ptr<Timer> itself;
  itself = timers.schedule(milliseconds(5), Duration(0), [&] {
    itself->invalidate();
    meanwhile->invalidate();
    this->log.push_back("fired");
  });
  timers.schedule(milliseconds(20), Duration(0), [&] { this->world.done(); });
  before->invalidate();
  before->invalidate();
  this->world.runUntilDone();
  EXPECT_EQ(this->log, typename TestFixture::Log{"fired"});
}

TYPED_TEST(PlatformContract, ObserversRunInOrderDuringThePosting) {
  auto& center = this->world.notificationCenter;
  center.addObserver("a", [&] {
    this->log.push_back("first");
    center.post("b");
    if (this->log.size() == 2) center.addObserver("a", this->note("added"));
  });
  center.addObserver("a", this->note("second"));
  center.addObserver("b", this->note("other"));
  center.post("a");
  center.post("nobody's");
  EXPECT_EQ(this->log, (typename TestFixture::Log{"first", "other", "second"}));
  this->log.clear();
  center.post("a");
  EXPECT_EQ(this->log, (typename TestFixture::Log{"first", "other", "second", "added"}));
}

TYPED_TEST(PlatformContract, DefaultsKeepTheLatestValueOfEachKey) {
  auto& defaults = this->world.defaults;
  EXPECT_EQ(defaults.doubleForKey("interval"), 0);
  defaults.setDouble(20.1, "interval");
  defaults.setDouble(-3, "other");
  defaults.setDouble(0.1 + 0.2, "interval");
  EXPECT_EQ(defaults.doubleForKey("interval"), 0.1 + 0.2);
  EXPECT_EQ(defaults.doubleForKey("other"), -3);
}

}  // namespace
}  // namespace veltrano

// The contract of every platform, checked on the real and the simulated one.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "platform/notification_center.h"
#include "platform/posix/threads/run_loop.h"
#include "platform/posix/threads/work_queue.h"
#include "platform/simulated/simulated_platform.h"

namespace veltrano::internal {
namespace {

using std::chrono::milliseconds;

// A platform whose time can advance: `runUntilDone` returns once any thread has called `done`.
struct PosixWorld {
  void done() { runLoop->stop(); }
  void runUntilDone() {
    ASSERT_TRUE(runLoop->runUntil(std::chrono::steady_clock::now() + std::chrono::seconds(30)));
  }

  std::shared_ptr<PosixRunLoop> runLoop = PosixRunLoop::ofThisThread();
  WorkQueue& makeQueue() { return *new PosixWorkQueue("contract"); }
  PosixTimers timers;
  LocalNotificationCenter notificationCenter;
};

struct SimulatedWorld {
  void done() { isDone = true; }
  void runUntilDone() {
    platform.timeline.runUntil(platform.timeline.now() + std::chrono::seconds(30));
    ASSERT_TRUE(isDone);
  }

  bool isDone = false;
  SimulatedPlatform platform;
  WorkQueue& makeQueue() { return platform.workQueue; }
  SimulatedTimers& timers = platform.timers;
  SimulatedNotificationCenter& notificationCenter = platform.notificationCenter;
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
  queue.async([&] {  // so that all are submitted before the first runs
    for (int i = 0; i < kBlocks; ++i) {
      queue.async([&, i] {
        order.push_back(i);
        if (i > 0) return;
        // A block submitted by a block neither runs at once nor overtakes waiting ones.
        queue.async([&] {
          order.push_back(kBlocks);
          this->world.done();
        });
      });
    }
  });
  this->world.runUntilDone();
  std::vector<int> expected(kBlocks + 1);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(order, expected);
}

TYPED_TEST(PlatformContract, DelayedItemsRunByDueTimeThenInTheOrderOfScheduling) {
  auto& queue = this->world.makeQueue();
  queue.async([&] {
    queue.asyncAfter(milliseconds(1500), this->lastItem());
    queue.asyncAfter(Duration::max(), this->item("never"));
    queue.asyncAfter(Duration(0), this->item("now"));
    queue.async(this->note("block"));
    queue.asyncAfter(Duration(-1), this->item("past"));
    for (const char* name : {"a", "b", "c", "d"})
      queue.asyncAfter(milliseconds(20), this->item(name));
  });
  this->world.runUntilDone();
  EXPECT_EQ(this->log, (typename TestFixture::Log{"now", "block", "past", "a", "b", "c", "d"}));
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
  auto& timers = this->world.timers;
  DispatchGroup group, empty;
  group.enter();
  // Items keep their places among blocks that are submitted during the wait.
  timers.schedule(milliseconds(1500), Duration(0), [&] {
    queue.asyncAfter(milliseconds(1), this->item("delayed meanwhile"));
    timers.schedule(milliseconds(1000), Duration(0), [&] {
      queue.async(this->note("late block"));
      queue.async([&] { this->world.done(); });
      this->log.push_back("left");
      group.leave();
    });
  });
  queue.async([&] {
    queue.async(this->note("block"));
    queue.asyncAfter(milliseconds(1), this->item("delayed"));
    queue.wait(group, [&] {
      this->log.push_back("then");
      queue.wait(empty, this->note("empty group"));
    });
  });
  this->world.runUntilDone();
  EXPECT_EQ(this->log, (typename TestFixture::Log{"left", "then", "empty group", "block", "delayed",
                                                  "delayed meanwhile", "late block"}));
}

TYPED_TEST(PlatformContract, TimersFireOnceByDueTimeUnlessInvalidated) {
  auto& timers = this->world.timers;
  // What is due at once comes first: this thread may lose the processor for longer than the others
  // wait.
  timers.schedule(Duration(0), Duration(0), this->note("now"));
  timers.schedule(Duration(-1), Duration(0), this->note("past"));
  auto before = timers.schedule(milliseconds(1), Duration(0), this->note("invalidated"));
  before->invalidate();
  before->invalidate();
  std::shared_ptr<Timer> itself, meanwhile;
  itself = timers.schedule(milliseconds(10), milliseconds(1), [&] {
    itself->invalidate();
    meanwhile->invalidate();
    this->log.push_back("first");
    timers.schedule(milliseconds(20), Duration(0), [&] {
      this->log.push_back("from a timer");
      this->world.done();
    });
  });
  meanwhile = timers.schedule(milliseconds(15), Duration(0), this->note("invalidated"));
  timers.schedule(milliseconds(20), Duration(0), this->note("second"));
  timers.schedule(Duration::max(), Duration::max(), this->note("never"));
  this->world.runUntilDone();
  EXPECT_EQ(this->log,
            (typename TestFixture::Log{"now", "past", "first", "second", "from a timer"}));
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
  center.post("a");
  EXPECT_EQ(this->log, (typename TestFixture::Log{"first", "other", "second", "first", "other",
                                                  "second", "added"}));
}

}  // namespace
}  // namespace veltrano::internal

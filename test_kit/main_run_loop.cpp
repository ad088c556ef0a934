#include <algorithm>
#include <utility>

#include "platform/host_callback.h"
#include "test_kit/implementation.h"

namespace veltrano::testing {
namespace {

constexpr Duration kLongestRun = std::chrono::hours(24);

}  // namespace

void World::Implementation::advance(Duration time) {
  if (!substitute_) throw Error("The world has ended.");
  if (!mainThread_.isCurrent()) throw Error("A world is advanced by the thread that made it.");
  if (time < Duration::zero()) throw Error("A world cannot go back in time.");
  if (isRunning_) {
    const std::string error = "A callback cannot advance the world that calls it.";
    complain(error);  // because exceptions of callbacks are dropped
    throw Error(error);
  }
  run(now() + time + kInstant, false);
}

// Ends at `target`, before anything that is due then: in a scenario, too, what the test does next
// comes first. Obeys the run loop's `stop` only if `isForLoop`, and returns whether that ended it.
bool World::Implementation::run(Duration target, bool isForLoop) {
  struct Running {
    explicit Running(Implementation& running) : world(running) {
      world.isRunning_ = true;
      world.recorder_.setBeforeAll(false);
    }
    ~Running() {
      world.isRunning_ = world.endsWhenStopped_ = false;
      world.recorder_.setBeforeAll(true);
      world.clock_.publish();
      world.unsettled_ = 0;
    }
    Implementation& world;
  };
  const Running running(*this);
  internal::Timeline& timeline = simulated_.timeline;
  timeline.begin();
  loop_.forgetSchedule();
  loop_.scheduleFunctions(now());
  timeline.addStep(target, [&] { timeline.stop(); });
  endsWhenStopped_ = isForLoop;
  wasStopped_ = false;
  timeline.runUntil(target);
  if (timeline.isRunaway())
    complain("So much happens that it would never end: something sets itself off again.");
  return wasStopped_;
}

bool World::Implementation::takeTurn() {
  clock_.publish();
  loop_.scheduleFunctions(now() + kInstant);
  if (endsWhenStopped_ && loop_.takeStop()) {
    endsWhenStopped_ = false;
    simulated_.timeline.addStep(now() + kInstant, [this] {
      wasStopped_ = true;
      simulated_.timeline.stop();
    });
  }
  return queue_.takeSubmissions();
}

void World::Implementation::jumpClock(Duration distance) {
  // The largest offset at which clock arithmetic cannot overflow.
  constexpr Duration kFarthest = std::chrono::seconds(4'000'000'000'000);
  Duration& jumped = simulated_.clock.jumped;
  jumped = std::clamp(jumped + std::clamp(distance, -kFarthest, kFarthest), -kFarthest, kFarthest);
  clock_.publish();
  recorder_.add("clockJump", [&](internal::JSONWriter& writer) {
    writer.key("seconds");
    writer.number(std::chrono::duration<double>(distance).count());
  });
}

void World::Implementation::Loop::run() {
  if (world_.canRun() && !runFor(kLongestRun))
    world_.complain("A run of the main run loop that nothing has stopped was ended after a day.");
}

bool World::Implementation::Loop::runUntil(std::chrono::steady_clock::time_point deadline) {
  const auto left = deadline - std::chrono::steady_clock::now();
  return runFor(std::min(std::chrono::duration_cast<Duration>(left), kLongestRun));
}

void World::Implementation::Loop::runDue() {
  if (world_.canRun() && !world_.isRunning_) world_.run(world_.now() + kInstant, false);
}

// True if stopped before `time` was over.
bool World::Implementation::Loop::runFor(Duration time) {
  if (!world_.canRun()) return false;
  if (takeStop()) return true;
  if (world_.isRunning_) {
    world_.complain("The main run loop was run by a callback: it returned at once.");
    return true;
  }
  return world_.run(world_.now() + std::max(time, Duration::zero()) + kInstant, true);
}

void World::Implementation::Loop::stop() {
  const std::lock_guard lock(mutex_);
  isToStop_ = true;
}

bool World::Implementation::Loop::takeStop() {
  const std::lock_guard lock(mutex_);
  return std::exchange(isToStop_, false);
}

void World::Implementation::Loop::perform(std::function<void()> function) {
  if (!function) return;
  const std::lock_guard lock(mutex_);
  functions_.push_back(std::move(function));
}

void World::Implementation::Loop::scheduleFunctions(Duration time) {
  std::size_t count = 0;
  {
    const std::lock_guard lock(mutex_);
    count = functions_.size();
  }
  for (; scheduled_ < count; ++scheduled_)
    world_.simulated_.timeline.addStep(time, [this] { runNext(); });
}

void World::Implementation::Loop::runNext() {
  std::function<void()> function;
  {
    const std::lock_guard lock(mutex_);
    function = std::move(functions_.front());
    functions_.pop_front();
  }
  --scheduled_;
  world_.recorder_.setBeforeAll(true);
  internal::dropExceptions(function);
  world_.recorder_.setBeforeAll(false);
}

}  // namespace veltrano::testing

#include <algorithm>
#include <future>
#include <utility>

#include "platform/host_callback.h"
#include "test_kit/implementation.h"
#include "upload/rules/final_flush.h"

namespace veltrano::testing {

using namespace internal;
namespace {

constexpr Duration kMaxRun = std::chrono::hours(24);
constexpr Duration kMaxAdvance = 36'525 * kMaxRun;
// How long a shutdown on another thread waits, after its deadline, for the main thread.
constexpr std::chrono::seconds kGrace{1};

// The time left until `deadline`, at most `kMaxRun`. Hosts add it to the real clock just before the
// call: rounded up, it is the same in every run.
Duration timeUntil(std::chrono::steady_clock::time_point deadline) {
  using Hundredths = std::chrono::duration<std::int64_t, std::centi>;
  const auto now = std::chrono::steady_clock::now();
  return std::min<Duration>(std::chrono::ceil<Hundredths>(std::max(deadline, now) - now), kMaxRun);
}

}  // namespace

void World::advance(Duration time) {
  Implementation& it = *implementation_;
  if (!it.substitute_) throw Error("The world has ended.");
  if (it.isForkedChild()) return;
  if (!it.isOnMainThread()) throw Error("A world is advanced by the thread that made it.");
  if (time < Duration::zero()) throw Error("A world cannot go back in time.");
  if (time > kMaxAdvance) throw Error("A world advances by a hundred years at most.");
  it.refuseInCallback("A callback cannot advance the world that calls it.");
  it.run(it.now() + time + kInstant, Implementation::Purpose::advance);
}

void World::Implementation::refuseInCallback(const std::string& error) const {
  if (!isRunning_ && !HostCall::isOnThisThread() && !Substitute::isInCallback()) return;
  throw Error(error);
}

// Ends at `target`, before anything that is due then: in a scenario, too, what the test does next
// comes first. Returns whether the main run loop's `stop` ended it. A function of the main run loop
// may shut down, which runs the world inside of this run.
bool World::Implementation::run(Duration target, Purpose purpose) {
  const bool isInner = std::exchange(isRunning_, true);
  const Purpose outerPurpose = std::exchange(purpose_, purpose);
  const bool wasOuterStopping = std::exchange(isStopping_, false);
  recorder_.setBeforeAll(false);
  const AtScopeEnd restore{[&] {
    isRunning_ = wasInterrupted_ = isInner;
    purpose_ = outerPurpose;
    isStopping_ = wasOuterStopping;
    recorder_.setBeforeAll(true);
    const Lock lock(mutex_);
    unsettled_.clear();
  }};
  Timeline& timeline = simulated_.timeline;
  wasStopped_ = false;
  do {
    wasInterrupted_ = false;
    timeline.begin();
    loop_.forgetSchedule();
    if (runsMainLoop(purpose)) loop_.scheduleFunctions(now());
    timeline.addStep(target, [&] { timeline.stop(); });
    if (isStopping_) stopSoon();
    timeline.runUntil(target);
    if (timeline.isRunaway()) complain("Runaway: something keeps rescheduling itself.");
  } while (wasInterrupted_);
  return wasStopped_;
}

bool World::Implementation::takeTurn() {
  if (runsMainLoop(purpose_)) loop_.scheduleFunctions(now() + kInstant);
  if (purpose_ == Purpose::mainRunLoop && !isStopping_ && loop_.takeStop()) {
    isStopping_ = true;
    stopSoon();
  }
  if (purpose_ == Purpose::lastAnswers && network_.isIdle()) simulated_.timeline.stop();
  return simulated_.workQueue.takeSubmissions();
}

void World::Implementation::stopSoon() {
  simulated_.timeline.addStep(now() + kInstant, [this] {
    wasStopped_ = true;
    simulated_.timeline.stop();
  });
}

bool World::Implementation::shutDown(Clock::time_point deadline) {
  if (HostCall::isOnThisThread()) return false;
  if (const auto result = wasComplete()) return *result;
  const Duration time = timeUntil(deadline);
  if (isOnMainThread()) return isRunning_ && !runsFunction_ ? false : shutDownWithin(time);
  const auto result = std::make_shared<std::promise<bool>>();
  loop_.perform([this, time, result] { result->set_value(shutDownWithin(time)); });
  auto outcome = result->get_future();
  if (outcome.wait_for(time + kGrace) == std::future_status::ready) return outcome.get();
  complain("A shutdown on another thread timed out: the main thread did not advance the world.");
  return false;
}

std::optional<bool> World::Implementation::wasComplete() const {
  const Lock lock(mutex_);
  return wasComplete_;
}

// Called on the main thread, perhaps again by a destructor that it runs.
bool World::Implementation::shutDownWithin(Duration time) {
  if (isShutDown_.exchange(true)) return wasComplete().value_or(false);
  const Duration deadline = now() + time + kInstant;
  if (time > Duration::zero()) flushUntil(deadline);
  simulated_.workQueue.stop();
  run(deadline, Purpose::lastAnswers);
  bool isComplete = network_.isIdle();
  // What is due now has run, except at the deadline.
  recorder_.end(now() < deadline ? now() + kInstant : now());
  network_.fail();
  run(now(), Purpose::flush);  // the flush that waited for an upload
  simulated_.timeline.dropScheduled();
  simulated_.notificationCenter.drop();
  substitute_->shutDown();
  const Statistics last = statistics();
  isComplete &= last.droppedByShutDown + last.inFlight == 0;
  const Lock lock(mutex_);
  wasComplete_ = isComplete;
  return isComplete;
}

// As the POSIX platform does.
void World::Implementation::flushUntil(Duration deadline) {
  enter(ApplicationState::background, {});
  network_.endRests();
  const auto flush = [&] {
    post(kApplicationDidEnterBackground);
    const auto result = std::make_shared<std::optional<FlushResult>>();
    simulated_.workQueue.async([this, result] {
      simulated_.workQueue.async([this, result] {
        *result = substitute_->lastFlush();
        simulated_.timeline.stop();
      });
    });
    run(deadline, Purpose::flush);
    return *result;
  };
  const auto pause = [&](Duration time) {
    if (now() + time >= deadline) return false;
    run(now() + time, Purpose::flush);
    return true;
  };
  flushWithRetries(flush, pause);
}

void World::Implementation::Loop::run() {
  if (world_.canRun() && !runFor(kMaxRun) && !world_.simulated_.timeline.isRunaway())
    world_.complain("The main run loop was not stopped and ended after one day.");
}

bool World::Implementation::Loop::runUntil(std::chrono::steady_clock::time_point deadline) {
  return runFor(timeUntil(deadline));
}

void World::Implementation::Loop::runDue() {
  if (!world_.canRun() || world_.isRunning_) return;
  const bool advanceRunsIt = std::exchange(world_.runsMainLoop_, true);
  world_.run(world_.now() + kInstant, Purpose::advance);
  world_.runsMainLoop_ = advanceRunsIt;
}

// True if stopped before `time` was over.
bool World::Implementation::Loop::runFor(Duration time) {
  if (!world_.canRun()) return false;
  if (takeStop()) return true;
  if (world_.isRunning_) {
    world_.complain("The main run loop was run by a callback: it returned at once.");
    return true;
  }
  return world_.run(world_.now() + time + kInstant, Purpose::mainRunLoop);
}

void World::Implementation::Loop::stop() {
  const Lock lock(mutex_);
  stopRequested_ = true;
}

bool World::Implementation::Loop::takeStop() {
  const Lock lock(mutex_);
  return std::exchange(stopRequested_, false);
}

void World::Implementation::Loop::perform(std::function<void()> function) {
  if (!function) return;
  const Lock lock(mutex_);
  functions_.push_back(std::move(function));
}

void World::Implementation::Loop::scheduleFunctions(Duration time) {
  std::size_t count = 0;
  {
    const Lock lock(mutex_);
    count = functions_.size();
  }
  for (; scheduled_ < count; ++scheduled_)
    world_.simulated_.timeline.addFollowUp(time, [this] { runNext(); });
}

void World::Implementation::Loop::runNext() {
  std::function<void()> function;
  {
    const Lock lock(mutex_);
    function = std::move(functions_.front());
    functions_.pop_front();
  }
  --scheduled_;
  world_.recorder_.setBeforeAll(true);
  world_.runsFunction_ = true;
  dropExceptions([&] { world_.watched("A function of the main run loop", function); });
  world_.runsFunction_ = false;
  world_.recorder_.setBeforeAll(false);
}

}  // namespace veltrano::testing

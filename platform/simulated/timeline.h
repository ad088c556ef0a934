#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <tuple>
#include <utility>
#include <vector>

#include "encoding/time.h"

namespace veltrano::internal {

/// Virtual time. Runs tasks one at a time, ordered by time, and moves the clock from one to the
/// next. At equal times, steps run first, in the order of addition, then scheduled tasks, in the
/// order of scheduling. Belongs to one thread; others may only ask for the time.
class Timeline {
 public:
  using Action = std::function<void()>;

  /// A run is a runaway if more than this follows one step: tasks at one instant, tasks in
  /// total (plus an allowance for each second since the step), turns at one instant.
  static constexpr int kTasksPerInstant = 50'000;
  static constexpr int kTasksPerStep = 200'000;
  static constexpr int kTasksPerSecond = 1'000;
  static constexpr int kTurnsPerInstant = 5'000'000;

  /// Time since the start.
  Duration now() const { return now_; }

  /// Whether this thread is the timeline's. Set where a host's threads use the platform, too.
  std::function<bool()> isOnItsThread = [] { return true; };

  /// Adds an input from outside the system.
  void addStep(Duration time, Action action) { add(time, Source::step, std::move(action), true); }

  /// Adds a step that counts towards the total that may follow the step before it.
  void addFollowUp(Duration time, Action action) { add(time, Source::step, std::move(action)); }

  /// Schedules work of the system itself.
  void schedule(Duration delay, Action action) {
    add(now() + std::max(delay, Duration::zero()), Source::scheduled, std::move(action));
  }

  /// Work that runs between tasks.
  class Turns {
   public:
    /// Takes one turn. True if there is another.
    virtual bool takeOne() = 0;

   protected:
    ~Turns() = default;
  };

  /// Takes all turns of `turns` before the next task. What became ready first goes first.
  ///
  /// Warning: `turns` must not be ready already.
  void makeReady(Turns& turns) { ready_.push_back(&turns); }

  /// When nothing is ready, calls `poll` until it returns false, then goes on to the next task.
  void pollWith(std::function<bool()> poll) { poll_ = std::move(poll); }

  /// Runs what is due until `time`, inclusive, and moves the clock there. False if the run was
  /// stopped, by `stop` or as a runaway.
  bool runUntil(Duration time);

  /// Prepares another run after a stopped one: drops the remaining steps, but keeps what the system
  /// has scheduled. Returns the time since the start.
  Duration begin();

  /// Drops what the system has scheduled.
  void dropScheduled() { drop(Source::scheduled); }

  /// Ends the run after the current task or turn.
  void stop() { isStopped_ = true; }

  bool isRunaway() const { return isRunaway_; }

 private:
  enum class Source { step, scheduled };
  struct Task {
    std::tuple<Duration, Source, std::uint64_t> place;
    Action action;
    bool restartsBudget = false;

    bool operator>(const Task& other) const { return place > other.place; }
  };

  void add(Duration time, Source source, Action action, bool restartsBudget = false);
  void drop(Source source);
  void takeTurns();
  void restartBudget();
  bool isOverBudget() const;

  std::atomic<Duration> now_{Duration(0)};
  std::deque<Turns*> ready_;  // a task that is destroyed may add to it
  std::vector<Task> tasks_;   // a heap; the earliest is in front
  std::function<bool()> poll_ = [] { return false; };
  std::uint64_t added_ = 0;
  Duration latestStep_{0};
  std::int64_t tasksSinceStep_ = 0;
  int tasksAtInstant_ = 0;
  int turnsAtInstant_ = 0;
  bool isStopped_ = false;
  bool isRunaway_ = false;
};

}  // namespace veltrano::internal

#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <tuple>
#include <utility>
#include <vector>

#include "encoding/time.h"

namespace veltrano::internal {

/// Virtual time: entries that happen in the order of their times, each running to its end, with
/// nothing but the entries moving the clock. At one time, steps come first in the order in which
/// they were added, then everything else in the order in which it was scheduled. One thread.
class Timeline {
 public:
  using Action = std::function<void()>;

  /// What may follow one step before the run counts as a runaway: entries at one instant, entries
  /// in all (more of them the more time has passed), and turns at one instant.
  static constexpr int kEntriesPerInstant = 50'000;
  static constexpr int kEntriesPerStep = 200'000;
  static constexpr int kEntriesPerSecond = 1'000;
  static constexpr int kTurnsPerInstant = 5'000'000;

  /// Time since the start.
  Duration now() const { return now_; }

  /// Adds something done to the system from outside.
  void addStep(Duration time, Action action);

  /// Schedules something that the system does by itself.
  void schedule(Duration delay, Action action);

  /// Something that runs between the entries.
  class Turns {
   public:
    /// Takes one turn. True when there is another to be taken.
    virtual bool takeOne() = 0;

   protected:
    ~Turns() = default;
  };

  /// Takes all turns of `turns` before the next entry, after those of what was ready earlier. Not
  /// for what is ready already.
  void makeReady(Turns& turns) { ready_.push_back(&turns); }

  /// Calls `poll` before each entry once nothing is ready, again as long as it returns true.
  void pollWith(std::function<bool()> poll) { poll_ = std::move(poll); }

  /// Runs what is due up to and including `time`, and moves the clock there. False when the run was
  /// stopped, by `stop` or as a runaway.
  bool runUntil(Duration time);

  /// Makes ready for another run after one that was stopped: drops the steps that are left, but
  /// not what the system has scheduled. Returns the time since the start.
  Duration begin();

  /// Ends the run once the entry that calls this has run to its end. Nothing happens afterwards.
  void stop() { isStopped_ = true; }

  bool isRunaway() const { return isRunaway_; }

 private:
  enum class Kind { step, scheduled };
  struct Entry {
    std::tuple<Duration, Kind, std::uint64_t> place;
    Action action;

    bool operator>(const Entry& other) const { return place > other.place; }
  };

  void add(Duration time, Kind kind, Action action);
  void takeTurns();
  void restartBudget();
  bool isOverBudget() const;

  Duration now_{0};
  std::vector<Entry> entries_;  // a heap, with what is due first at the front
  std::deque<Turns*> ready_;
  std::function<bool()> poll_ = [] { return false; };
  std::uint64_t added_ = 0;
  Duration latestStep_{0};
  std::int64_t entriesSinceStep_ = 0;
  int entriesAtInstant_ = 0;
  int turnsAtInstant_ = 0;
  bool isStopped_ = false;
  bool isRunaway_ = false;
};

}  // namespace veltrano::internal

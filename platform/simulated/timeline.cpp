#include "platform/simulated/timeline.h"

#include <algorithm>
#include <utility>

namespace veltrano {

void Timeline::addStep(Duration time, Action action) {
  add(time, Kind::step, std::move(action));
}

void Timeline::schedule(Duration delay, Action action) {
  add(now_ + std::max(delay, Duration::zero()), Kind::scheduled, std::move(action));
}

void Timeline::add(Duration time, Kind kind, Action action) {
  entries_.emplace(Place(time, kind, added_++), std::move(action));
}

bool Timeline::runUntil(Duration time) {
  for (takeTurns(); !isStopped_ && !entries_.empty(); takeTurns()) {
    const auto& [due, kind, order] = entries_.begin()->first;
    if (due > time) break;
    if (kind == Kind::step) entriesSinceStep_ = turnsSinceStep_ = 0;
    if (kind == Kind::step || due > now_) entriesAtInstant_ = 0;
    if (++entriesSinceStep_ > kEntriesPerStep || ++entriesAtInstant_ > kEntriesPerInstant)
      isRunaway_ = isStopped_ = true;
    now_ = std::max(now_, due);
    const Action action = std::move(entries_.begin()->second);
    entries_.erase(entries_.begin());
    action();
  }
  if (!isStopped_) now_ = std::max(now_, time);
  return !isStopped_;
}

Duration Timeline::begin() {
  std::erase_if(entries_,
                [](const auto& entry) { return std::get<Kind>(entry.first) == Kind::step; });
  isStopped_ = isRunaway_ = false;
  entriesSinceStep_ = entriesAtInstant_ = turnsSinceStep_ = 0;
  return now_;
}

void Timeline::takeTurns() {
  while (!isStopped_ && turn_())
    if (++turnsSinceStep_ > kTurnsPerStep) isRunaway_ = isStopped_ = true;
}

}  // namespace veltrano

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
    if (kind == Kind::step) sinceStep_ = 0;
    if (kind == Kind::step || due > now_) sinceInstant_ = 0;
    now_ = std::max(now_, due);
    const Action action = std::move(entries_.begin()->second);
    entries_.erase(entries_.begin());
    action();
    count();
  }
  if (!isStopped_) now_ = std::max(now_, time);
  return !isStopped_;
}

void Timeline::takeTurns() {
  while (!isStopped_ && turn_()) count();
}

void Timeline::count() {
  if (++sinceStep_ < kBudgetPerStep && ++sinceInstant_ < kBudgetPerInstant) return;
  isRunaway_ = true;
  isStopped_ = true;
}

}  // namespace veltrano

#include "platform/simulated/timeline.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace veltrano::internal {

void Timeline::add(Duration time, Source source, Action action, bool restartsBudget) {
  entries_.push_back({{time, source, added_++}, std::move(action), restartsBudget});
  std::push_heap(entries_.begin(), entries_.end(), std::greater());
}

bool Timeline::runUntil(Duration time) {
  for (takeTurns(); !isStopped_ && !entries_.empty(); takeTurns()) {
    const auto [due, source, order] = entries_.front().place;
    if (due > time) break;
    if (due > now() || source == Source::step) entriesAtInstant_ = turnsAtInstant_ = 0;
    now_ = std::max(now(), due);
    if (entries_.front().restartsBudget) restartBudget();
    ++entriesSinceStep_;
    ++entriesAtInstant_;
    if (isOverBudget()) isRunaway_ = isStopped_ = true;
    std::pop_heap(entries_.begin(), entries_.end(), std::greater());
    const Action action = std::move(entries_.back().action);
    entries_.pop_back();
    action();
  }
  if (!isStopped_) now_ = std::max(now(), time);
  return !isStopped_;
}

// Destroys them last: an action may hold code that schedules.
void Timeline::drop(Source source) {
  const auto kept = std::partition(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return std::get<Source>(entry.place) != source;
  });
  const std::vector<Entry> dropped(std::make_move_iterator(kept),
                                   std::make_move_iterator(entries_.end()));
  entries_.erase(kept, entries_.end());
  std::make_heap(entries_.begin(), entries_.end(), std::greater());
}

Duration Timeline::begin() {
  drop(Source::step);
  isStopped_ = isRunaway_ = false;
  restartBudget();
  return now();
}

void Timeline::restartBudget() {
  latestStep_ = now();
  entriesSinceStep_ = entriesAtInstant_ = turnsAtInstant_ = 0;
}

bool Timeline::isOverBudget() const {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(now() - latestStep_).count();
  return entriesAtInstant_ > kEntriesPerInstant ||
         (entriesSinceStep_ - kEntriesPerStep) / kEntriesPerSecond > seconds;
}

void Timeline::takeTurns() {
  while (!isStopped_ && (!ready_.empty() || poll_())) {
    if (!ready_.empty() && !ready_.front()->takeOne()) ready_.pop_front();
    if (++turnsAtInstant_ > kTurnsPerInstant) isRunaway_ = isStopped_ = true;
  }
}

}  // namespace veltrano::internal

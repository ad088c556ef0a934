#include "platform/simulated/timeline.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace veltrano::internal {

void Timeline::add(Duration time, Source source, Action action, bool restartsBudget) {
  tasks_.push_back({{time, source, added_++}, std::move(action), restartsBudget});
  std::push_heap(tasks_.begin(), tasks_.end(), std::greater());
}

bool Timeline::runUntil(Duration time) {
  for (takeTurns(); !isStopped_ && !tasks_.empty(); takeTurns()) {
    const auto [due, source, order] = tasks_.front().place;
    if (due > time) break;
    if (due > now() || source == Source::step) tasksAtInstant_ = turnsAtInstant_ = 0;
    now_ = std::max(now(), due);
    if (tasks_.front().restartsBudget) restartBudget();
    ++tasksSinceStep_;
    ++tasksAtInstant_;
    if (isOverBudget()) isRunaway_ = isStopped_ = true;
    std::pop_heap(tasks_.begin(), tasks_.end(), std::greater());
    const Action action = std::move(tasks_.back().action);
    tasks_.pop_back();
    action();
  }
  if (!isStopped_) now_ = std::max(now(), time);
  return !isStopped_;
}

// Destroys them last: an action may hold code that schedules.
void Timeline::drop(Source source) {
  const auto kept = std::partition(tasks_.begin(), tasks_.end(), [&](const Task& task) {
    return std::get<Source>(task.place) != source;
  });
  const std::vector<Task> dropped(std::make_move_iterator(kept),
                                  std::make_move_iterator(tasks_.end()));
  tasks_.erase(kept, tasks_.end());
  std::make_heap(tasks_.begin(), tasks_.end(), std::greater());
}

Duration Timeline::begin() {
  drop(Source::step);
  isStopped_ = isRunaway_ = false;
  restartBudget();
  return now();
}

void Timeline::restartBudget() {
  latestStep_ = now();
  tasksSinceStep_ = tasksAtInstant_ = turnsAtInstant_ = 0;
}

bool Timeline::isOverBudget() const {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(now() - latestStep_).count();
  return tasksAtInstant_ > kTasksPerInstant ||
         (tasksSinceStep_ - kTasksPerStep) / kTasksPerSecond > seconds;
}

void Timeline::takeTurns() {
  while (!isStopped_ && (!ready_.empty() || poll_())) {
    if (!ready_.empty() && !ready_.front()->takeOne()) ready_.pop_front();
    if (++turnsAtInstant_ > kTurnsPerInstant) isRunaway_ = isStopped_ = true;
  }
}

}  // namespace veltrano::internal

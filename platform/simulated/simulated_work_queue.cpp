#include "platform/simulated/simulated_work_queue.h"

#include <utility>

namespace veltrano::internal {

void SimulatedWorkQueue::submit(Submission submission) {
  {
    const Lock lock(mutex_);
    if (!timeline_.isOnItsThread() || !submissions_.empty())
      return submissions_.push_back(std::move(submission));
  }
  accept(std::move(submission));
}

void SimulatedWorkQueue::accept(Submission submission) {
  if (submission.block == nullptr && submission.delay > Duration::zero())
    return timeline_.schedule(submission.delay, [this, item = std::move(submission.item)] {
      accept({nullptr, Duration(0), item});
    });
  if (isStopped_) {
    if (submission.block != nullptr) submission.block->drop();
    return;
  }
  ready_.push_back(submission.block != nullptr
                       ? std::move(submission.block)
                       : std::make_unique<DelayedBlock>(std::move(submission.item)));
  becomeReady();
}

bool SimulatedWorkQueue::isNewest(const Block& block) const {
  const Lock lock(mutex_);
  if (!submissions_.empty()) return submissions_.back().block.get() == &block;
  return timeline_.isOnItsThread() && !ready_.empty() && ready_.back().get() == &block;
}

bool SimulatedWorkQueue::takeSubmissions() {
  // Threads that submit faster than this takes would hold the time forever.
  constexpr std::size_t kPerInstant = 1'000;
  const Duration now = timeline_.now();
  const bool isFirst = std::exchange(latestTaken_, now) != now;
  if (isFirst) takenAgain_ = 0;
  if (takenAgain_ > kPerInstant) return false;
  std::deque<Submission> taken;
  {
    const Lock lock(mutex_);
    taken.swap(submissions_);
  }
  if (!isFirst) takenAgain_ += taken.size();
  for (Submission& submission : taken) accept(std::move(submission));
  return !taken.empty();
}

void SimulatedWorkQueue::wait(DispatchGroup& group, std::function<void()> then) {
  if (group.isEmpty()) return then();
  isParked_ = true;
  afterWait_ = std::move(then);
  group.notify([this] {
    isParked_ = false;
    becomeReady();
  });
}

void SimulatedWorkQueue::stop() {
  isStopped_ = true;
  // One at a time: destroying a block might submit another.
  while (!ready_.empty()) {
    const auto dropped = std::move(ready_.front());
    ready_.pop_front();
    dropped->drop();
  }
}

// Continues after a wait, or runs one block.
bool SimulatedWorkQueue::takeOne() {
  if (afterWait_) {
    std::exchange(afterWait_, nullptr)();
  } else if (!ready_.empty()) {
    const auto block = std::move(ready_.front());
    ready_.pop_front();
    block->run();
  }
  takesTurns_ = !isParked_ && !ready_.empty();
  return takesTurns_;
}

}  // namespace veltrano::internal

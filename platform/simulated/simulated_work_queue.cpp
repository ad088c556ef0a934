#include "platform/simulated/simulated_work_queue.h"

#include <utility>

namespace veltrano::internal {

SimulatedWorkQueue::SimulatedWorkQueue(Timeline& timeline) : timeline_(timeline) {
  timeline_.addTurn([this] { return runOne(); });
}

void SimulatedWorkQueue::async(std::unique_ptr<Block> block) {
  ready_.push_back(std::move(block));
}

void SimulatedWorkQueue::asyncAfter(Duration delay, std::shared_ptr<WorkItem> item) {
  auto becomeReady = [this, item = std::move(item)] { async([item] { item->run(); }); };
  if (delay <= Duration::zero()) return becomeReady();
  timeline_.schedule(delay, std::move(becomeReady));
}

void SimulatedWorkQueue::wait(std::shared_ptr<DispatchGroup> group, std::function<void()> then) {
  if (group->isEmpty()) return then();
  awaited_ = std::move(group);
  afterWait_ = std::move(then);
}

// Runs one block, or the end of a wait that is over. False when nothing is ready.
bool SimulatedWorkQueue::runOne() {
  if (awaited_) {
    if (!awaited_->isEmpty()) return false;
    awaited_.reset();
    std::exchange(afterWait_, nullptr)();
    return true;
  }
  if (ready_.empty()) return false;
  const auto block = std::move(ready_.front());
  ready_.pop_front();
  block->run();
  return true;
}

}  // namespace veltrano::internal

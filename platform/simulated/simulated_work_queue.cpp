#include "platform/simulated/simulated_work_queue.h"

#include <utility>

namespace veltrano::internal {

void SimulatedWorkQueue::async(std::unique_ptr<Block> block) {
  if (isStopped_) return block->drop();
  ready_.push_back(std::move(block));
  becomeReady();
}

void SimulatedWorkQueue::asyncAfter(Duration delay, std::shared_ptr<WorkItem> item) {
  auto submit = [this, item = std::move(item)] { async([item] { item->run(); }); };
  if (delay <= Duration::zero()) return submit();
  timeline_.schedule(delay, std::move(submit));
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

void SimulatedWorkQueue::becomeReady() {
  if (!isParked_ && !std::exchange(takesTurns_, true)) timeline_.makeReady(*this);
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

#include "platform/simulated/simulated_work_queue.h"

#include <algorithm>
#include <utility>

namespace veltrano {

void SimulatedWorkQueue::async(std::unique_ptr<Block> block) {
  ready_.push_back([shared = std::shared_ptr<Block>(std::move(block))] { shared->run(); });
}

void SimulatedWorkQueue::asyncAfter(Duration delay, std::shared_ptr<WorkItem> item) {
  auto becomeReady = [this, item = std::move(item)] { ready_.push_back([item] { item->run(); }); };
  if (delay <= Duration::zero()) return becomeReady();
  timeline_.schedule(delay, std::move(becomeReady));
}

void SimulatedWorkQueue::wait(std::shared_ptr<DispatchGroup> group, std::function<void()> then) {
  if (group->isEmpty()) return then();
  awaited_ = std::move(group);
  afterWait_ = std::move(then);
}

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
  block();
  return true;
}

WorkQueue& SimulatedDispatch::makeSerialQueue(std::string_view) {
  return queues_.emplace_back(timeline_);
}

bool SimulatedDispatch::runOne() {
  return std::any_of(queues_.begin(), queues_.end(),
                     [](SimulatedWorkQueue& queue) { return queue.runOne(); });
}

}  // namespace veltrano

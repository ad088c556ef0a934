#pragma once

#include <deque>
#include <functional>
#include <memory>

#include "platform/simulated/timeline.h"
#include "platform/work_queue.h"

namespace veltrano::internal {

/// A work queue whose blocks run between the entries of a timeline. The two live until neither runs
/// any more.
class SimulatedWorkQueue final : public WorkQueue {
 public:
  explicit SimulatedWorkQueue(Timeline& timeline);
  SimulatedWorkQueue(const SimulatedWorkQueue&) = delete;
  SimulatedWorkQueue& operator=(const SimulatedWorkQueue&) = delete;

  using WorkQueue::async;
  void async(std::unique_ptr<Block> block) override;
  void asyncAfter(Duration delay, std::shared_ptr<WorkItem> item) override;
  bool isNewest(const Block& block) const override {
    return !ready_.empty() && ready_.back().get() == &block;
  }
  void wait(std::shared_ptr<DispatchGroup> group, std::function<void()> then) override;

 private:
  bool runOne();

  Timeline& timeline_;
  std::deque<std::unique_ptr<Block>> ready_;
  std::shared_ptr<DispatchGroup> awaited_;  // not null while the queue is parked
  std::function<void()> afterWait_;
};

}  // namespace veltrano::internal

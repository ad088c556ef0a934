#pragma once

#include <deque>
#include <functional>
#include <memory>

#include "platform/simulated/timeline.h"
#include "platform/work_queue.h"

namespace veltrano {

/// A work queue whose blocks run between the entries of a timeline.
class SimulatedWorkQueue final : public WorkQueue {
 public:
  explicit SimulatedWorkQueue(Timeline& timeline) : timeline_(timeline) {}

  using WorkQueue::async;
  void async(std::unique_ptr<Block> block) override;
  void asyncAfter(Duration delay, std::shared_ptr<WorkItem> item) override;
  void wait(std::shared_ptr<DispatchGroup> group, std::function<void()> then) override;

  /// Runs one block, or the end of a wait that is over. False when nothing is ready.
  bool runOne();

 private:
  Timeline& timeline_;
  std::deque<std::function<void()>> ready_;
  std::shared_ptr<DispatchGroup> awaited_;  // not null while the queue is parked
  std::function<void()> afterWait_;
};

/// Makes simulated queues; between two entries they take turns in the order of their making.
class SimulatedDispatch final : public Dispatch {
 public:
  explicit SimulatedDispatch(Timeline& timeline) : timeline_(timeline) {}

  WorkQueue& makeSerialQueue(std::string_view label) override;
  bool runOne();

 private:
  Timeline& timeline_;
  std::deque<SimulatedWorkQueue> queues_;
};

}  // namespace veltrano

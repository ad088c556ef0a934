#pragma once

#include <deque>
#include <functional>
#include <memory>

#include "platform/simulated/timeline.h"
#include "platform/work_queue.h"

namespace veltrano::internal {

/// A work queue whose blocks run between the entries of a timeline. Both must live until the last
/// run of the timeline.
class SimulatedWorkQueue final : public WorkQueue, private Timeline::Turns {
 public:
  explicit SimulatedWorkQueue(Timeline& timeline) : timeline_(timeline) {}
  SimulatedWorkQueue(const SimulatedWorkQueue&) = delete;
  SimulatedWorkQueue& operator=(const SimulatedWorkQueue&) = delete;

  using WorkQueue::async;
  void async(std::unique_ptr<Block> block) override;
  void asyncAfter(Duration delay, std::shared_ptr<WorkItem> item) override;
  bool isNewest(const Block& block) const override {
    return !ready_.empty() && ready_.back().get() == &block;
  }
  void wait(DispatchGroup& group, std::function<void()> then) override;

  /// Drops pending blocks, and later ones. What follows a wait still runs.
  void stop();

 private:
  bool takeOne() override;
  void becomeReady();

  Timeline& timeline_;
  std::deque<std::unique_ptr<Block>> ready_;
  std::function<void()> afterWait_;
  bool isStopped_ = false;
  bool isParked_ = false;    // waits for a dispatch group
  bool takesTurns_ = false;  // is in the timeline's list of what is ready
};

}  // namespace veltrano::internal

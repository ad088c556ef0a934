#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "platform/mutex.h"
#include "platform/simulated/timeline.h"
#include "platform/work_queue.h"

namespace veltrano::internal {

/// A work queue whose blocks run between the tasks of a timeline. Both must live until the last
/// run of the timeline. What other threads submit waits until it is taken.
class SimulatedWorkQueue : public WorkQueue, private Timeline::Turns {
 public:
  explicit SimulatedWorkQueue(Timeline& timeline) : timeline_(timeline) {}

  using WorkQueue::async;
  void async(std::unique_ptr<Block> block) override { submit({std::move(block), {}, nullptr}); }
  void asyncAfter(Duration delay, std::shared_ptr<WorkItem> item) override {
    submit({nullptr, delay, std::move(item)});
  }
  bool isNewest(const Block& block) const override;
  void wait(DispatchGroup& group, std::function<void()> then) override;

  /// Takes what other threads have submitted. False if there was nothing, or if much has been
  /// submitted since this was first called at this time: that waits for a later time.
  bool takeSubmissions();

  /// Drops pending blocks, and later ones. What follows a wait still runs.
  void stop();

 private:
  struct Submission {
    std::unique_ptr<Block> block;  // null: an item instead
    Duration delay{0};
    std::shared_ptr<WorkItem> item;
  };

  bool takeOne() override;
  void submit(Submission submission);
  void accept(Submission submission);
  void becomeReady() {
    if (!isParked_ && !std::exchange(takesTurns_, true)) timeline_.makeReady(*this);
  }

  Timeline& timeline_;
  std::deque<std::unique_ptr<Block>> ready_;
  std::function<void()> afterWait_;
  bool isStopped_ = false;
  bool isParked_ = false;    // waits for a dispatch group
  bool takesTurns_ = false;  // is in the timeline's list of what is ready

  std::optional<Duration> latestTaken_;  // when submissions were taken
  std::size_t takenAgain_ = 0;           // how many then, after the first time
  mutable Mutex mutex_;
  std::deque<Submission> submissions_ GUARDED_BY(mutex_);  // of other threads, and what follows
};

}  // namespace veltrano::internal

#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/mutex.h"
#include "platform/posix/threads/delayed_items.h"
#include "platform/posix/threads/submissions.h"
#include "platform/work_queue.h"

namespace veltrano::internal {

/// A serial queue on its own thread, which the first submission starts. Blocks run and are
/// destroyed there; exceptions are dropped. Never destroy a queue that has been used.
///
/// Waking the thread costs the submitter microseconds. So deferred blocks let it sleep, and after
/// others it polls as long as more arrive within about two milliseconds.
class PosixWorkQueue final : public WorkQueue {
 public:
  explicit PosixWorkQueue(std::string_view label) : label_(label) {}

  using WorkQueue::async;
  void async(std::unique_ptr<Block> block) override;
  void asyncDeferred(std::unique_ptr<Block> block) override;
  void wakeUp() override { static_cast<void>(submitted_.wake()); }
  void setDeferrable(std::function<std::size_t()> deferrable) override {
    deferrable_ = std::move(deferrable);
  }
  void asyncAfter(Duration delay, std::shared_ptr<WorkItem> item) override;
  bool isNewest(const Block& block) const override { return submitted_.newest() == &block; }
  void wait(DispatchGroup& group, std::function<void()> then) override;

  /// Starts no more blocks and items. Once the current block has returned, destroys pending and
  /// later ones without running them, and ends the thread.
  void stop();

  /// Waits for the thread to end, after `stop`. False if it still runs at `deadline`.
  bool waitForEnd(DelayedItems::Clock::time_point deadline);

 private:
  using Clock = DelayedItems::Clock;
  using Queue = Submissions<Block, StandardThreads>;

  void startOrDestroy();
  void start() REQUIRES(mutex_);
  void endThread();
  void destroyPending();
  bool shouldContinue() const;
  void work();
  bool runWhatIsReady();
  void submitDue();
  void runSubmitted();
  void nap(Duration duration);
  void dropCancelled();
  void sleep();
  std::optional<Clock::time_point> nextDue();

  const std::string label_;
  std::function<std::size_t()> deferrable_ = [] { return 0; };  // set before the thread starts
  Queue submitted_;
  Mutex mutex_;
  std::condition_variable endOfThread_;
  std::atomic<bool> isStopped_{false};  // changed under mutex_
  bool isStarted_ GUARDED_BY(mutex_) = false;
  bool hasEnded_ GUARDED_BY(mutex_) = false;
  DelayedItems delayed_ GUARDED_BY(mutex_);
};

}  // namespace veltrano::internal

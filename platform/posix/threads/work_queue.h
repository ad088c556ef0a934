#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/posix/threads/delayed_items.h"
#include "platform/posix/threads/submissions.h"
#include "platform/work_queue.h"

namespace veltrano::internal {

/// A serial queue on its own thread, which the first submission starts. Blocks run and are
/// destroyed there; exceptions are dropped. Never destroy a queue that has been used.
///
/// Polls every 400 µs for 20 ms after the last submission, because waking the thread would cost the
/// submitter microseconds.
class PosixWorkQueue final : public WorkQueue {
 public:
  explicit PosixWorkQueue(std::string_view label);

  using WorkQueue::async;
  void async(std::unique_ptr<Block> block) override;
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
  enum class State { unstarted, awake, asleep, ended };

  void wake();
  void start();
  void endThread();
  void destroyPending();
  bool shouldContinue() const;
  void work();
  bool runWhatIsReady();
  void submitDue();
  void runSubmitted();
  void nap();
  void dropCancelled();
  void sleep();
  void sleepUntilNextDue(std::unique_lock<std::mutex>& lock);

  const std::string label_;
  Submissions submitted_;
  // Changed under mutex_. Sequentially consistent with submitted_: a submitter pushes, then reads
  // the state; the thread sets the state, then checks for submissions. One of them sees the other.
  std::atomic<State> state_{State::unstarted};
  std::mutex mutex_;
  std::condition_variable wakeUp_;
  std::condition_variable hasEnded_;
  std::atomic<bool> isStopped_{false};  // changed under mutex_
  DelayedItems delayed_;                // guarded by mutex_
};

}  // namespace veltrano::internal

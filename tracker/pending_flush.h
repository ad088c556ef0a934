#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "encoding/time.h"
#include "platform/clock.h"
#include "platform/host_callback.h"
#include "platform/mutex.h"
#include "platform/work_queue.h"

namespace veltrano::internal {

/// The next flush; there is at most one. Thread-safe.
class PendingFlush {
 public:
  using Completion = HostFunction<bool>;
  using Run = std::function<void(std::chrono::seconds delay, Completion completion)>;

  /// Calls `run` on `queue` when a flush is due.
  PendingFlush(WorkQueue& queue, const WallClock& clock, Run run)
      : queue_(queue), clock_(clock), run_(std::move(run)) {}

  /// When the pending flush is due by the clock's `elapsed`, if there is one; 0 if it is forced.
  std::optional<Duration> due() {
    const Lock lock(mutex_);
    return pending_.number != 0 ? std::optional(pending_.due) : std::nullopt;
  }

  /// Replaces the pending flush with one due after `delay`; the completion of the old one is never
  /// called. No-op if `onlyIf` is false, which is checked under the lock, or if `onlyFirst` is true
  /// and any flush was scheduled before. Has no effect when it throws.
  void schedule(std::chrono::seconds delay, Completion completion,
                const std::atomic<bool>* onlyIf = nullptr, bool onlyFirst = false) {
    Flush replaced;  // destroyed after the lock is released: the completion belongs to the host
    const Lock lock(mutex_);
    if ((onlyIf != nullptr && !*onlyIf) || (onlyFirst && next_ > 1)) return;
    const auto work = [this, number = next_] { start(number); };
    if (delay == delay.zero()) {
      // While a backlog of events is recorded, each one forces a flush: reuse the newest block.
      if (pending_.block != nullptr && queue_.isNewest(*pending_.block))
        return std::swap(pending_.completion, completion);
      auto block = makeBlock(work);
      const Block* const forced = block.get();
      queue_.async(std::move(block));
      replaced =
          std::exchange(pending_, {next_++, delay, {}, std::move(completion), forced, nullptr});
    } else {
      auto item = std::make_shared<WorkItem>(work);
      queue_.asyncAfter(delay, item);
      const Duration due = clock_.elapsed() + delay;
      replaced =
          std::exchange(pending_, {next_++, delay, due, std::move(completion), nullptr, item});
    }
    if (replaced.item != nullptr) replaced.item->cancel();
  }

  /// Cancels the pending flush; its completion is never called. No-op if `unless` is true, which is
  /// checked under the lock.
  void cancel(const std::atomic<bool>* unless = nullptr) {
    Flush cancelled;  // destroyed after the lock is released
    const Lock lock(mutex_);
    if (unless != nullptr && *unless) return;
    cancelled = std::exchange(pending_, {});
    if (cancelled.item != nullptr) cancelled.item->cancel();
  }

 private:
  struct Flush {
    std::uint64_t number = 0;  // 0: none
    std::chrono::seconds delay{0};
    Duration due{0};  // for the status
    Completion completion;
    const Block* block = nullptr;    // of a forced flush
    std::shared_ptr<WorkItem> item;  // of a delayed one
  };

  // On the work queue. No-op when the flush has been replaced.
  void start(std::uint64_t number) {
    Flush flush;
    {
      const Lock lock(mutex_);
      if (pending_.number != number) return;
      flush = std::exchange(pending_, {});
    }
    run_(flush.delay, std::move(flush.completion));
  }

  WorkQueue& queue_;
  const WallClock& clock_;
  const Run run_;
  Mutex mutex_;
  std::uint64_t next_ GUARDED_BY(mutex_) = 1;
  Flush pending_ GUARDED_BY(mutex_);
};

}  // namespace veltrano::internal

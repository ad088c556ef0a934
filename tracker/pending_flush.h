#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/work_queue.h"

namespace veltrano::internal {

/// The one flush that is due next. Safe to use from any thread.
class PendingFlush {
 public:
  using Completion = std::function<void(bool)>;
  using Run = std::function<void(std::chrono::seconds delay, Completion completion)>;

  /// `run` performs a flush, on `queue`.
  PendingFlush(WorkQueue& queue, Run run) : queue_(queue), run_(std::move(run)) {}

  /// Puts a flush that is due after `delay` in the place of the pending one, whose completion is
  /// then never called; changes nothing when it throws. Does nothing unless `onlyIf` is true, which
  /// is read together with the replacement; nor, with `onlyFirst`, when any flush has been
  /// scheduled before.
  void schedule(std::chrono::seconds delay, Completion completion,
                const std::atomic<bool>* onlyIf = nullptr, bool onlyFirst = false) {
    Flush replaced;  // destroyed after the lock is released: its completion is the host's
    const std::lock_guard lock(mutex_);
    if ((onlyIf != nullptr && !*onlyIf) || (onlyFirst && next_ > 1)) return;
    if (delay == delay.zero()) {
      // While events are caught up with, each forces a flush behind all others.
      if (pending_.block != nullptr && queue_.isNewest(*pending_.block))
        return pending_.completion.swap(completion);
      std::unique_ptr<Block> block = std::make_unique<FlushBlock>(*this, next_);
      const Block* const forced = block.get();
      queue_.async(std::move(block));
      replaced = std::exchange(pending_, {next_++, delay, std::move(completion), forced, nullptr});
    } else {
      auto item = std::make_shared<WorkItem>([this, number = next_] { start(number); });
      queue_.asyncAfter(delay, item);
      replaced = std::exchange(pending_, {next_++, delay, std::move(completion), nullptr, item});
    }
    if (replaced.item != nullptr) replaced.item->cancel();
  }

  /// Leaves no flush pending; the completion is never called.
  void cancel() {
    Flush cancelled;  // destroyed after the lock is released
    const std::lock_guard lock(mutex_);
    cancelled = std::exchange(pending_, {});
    if (cancelled.item != nullptr) cancelled.item->cancel();
  }

 private:
  struct Flush {
    std::uint64_t number = 0;  // 0: none
    std::chrono::seconds delay{0};
    Completion completion;
    const Block* block = nullptr;    // of a forced flush
    std::shared_ptr<WorkItem> item;  // of a delayed one
  };

  struct FlushBlock final : Block {
    FlushBlock(PendingFlush& flushes, std::uint64_t flush) : owner(flushes), number(flush) {}
    void run() override { owner.start(number); }

    PendingFlush& owner;
    const std::uint64_t number;
  };

  // On the work queue. Does nothing when the flush has been replaced.
  void start(std::uint64_t number) {
    Flush flush;
    {
      const std::lock_guard lock(mutex_);
      if (pending_.number != number) return;
      flush = std::exchange(pending_, {});
    }
    run_(flush.delay, std::move(flush.completion));
  }

  WorkQueue& queue_;
  const Run run_;
  std::mutex mutex_;
  std::uint64_t next_ = 1;  // guarded by mutex_
  Flush pending_;           // guarded by mutex_
};

}  // namespace veltrano::internal

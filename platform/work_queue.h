#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include "encoding/time.h"
#include "platform/dispatch_group.h"
#include "platform/work_item.h"

namespace veltrano::internal {

/// One block of work. It links to its successor itself, so that handing it over costs no
/// allocation beyond the block's own.
class Block {
 public:
  virtual ~Block() = default;
  virtual void run() = 0;

  std::atomic<Block*> next{nullptr};  // for the queue that owns the block
};

/// A serial queue: blocks run one at a time, in the order of submission, never on the submitting
/// thread's stack. Submission is safe from any thread, never waits for a block that runs, and is
/// cheap enough for a host's busiest thread. A queue lives as long as the process; what is still
/// pending when the process ends never runs.
class WorkQueue {
 public:
  virtual ~WorkQueue() = default;

  virtual void async(std::unique_ptr<Block> /*block*/) {}

  template <class Work>
  void async(Work work) {
    struct WorkBlock final : Block {
      explicit WorkBlock(Work&& w) : work(std::move(w)) {}
      void run() override { work(); }
      Work work;
    };
    async(std::unique_ptr<Block>(std::make_unique<WorkBlock>(std::move(work))));
  }

  /// Submits `item` once `delay` has passed; with no delay at once, in order with `async`.
  /// Items due at the same time keep the order in which they were scheduled.
  virtual void asyncAfter(Duration /*delay*/, std::shared_ptr<WorkItem> /*item*/) {}

  /// Whether nothing has been submitted after `block`, which has not begun to run.
  virtual bool isNewest(const Block& /*block*/) const { return false; }

  /// For the block that is running, as its last act: parks the queue until `group` is empty, then
  /// runs `then` before any other block. When the group is empty already, `then` runs at once.
  virtual void wait(std::shared_ptr<DispatchGroup> /*group*/, std::function<void()> /*then*/) {}
};

}  // namespace veltrano::internal

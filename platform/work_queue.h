#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include "encoding/time.h"
#include "platform/dispatch_group.h"
#include "platform/work_item.h"

namespace veltrano::internal {

/// One block of work. Intrusively linked, so that submitting it allocates nothing.
class Block {
 public:
  virtual ~Block() = default;
  virtual void run() = 0;

  std::atomic<Block*> next{nullptr};  // for the queue that owns the block
};

/// A serial queue: blocks run one at a time, in submission order, never on the submitter's stack.
/// Submission is thread-safe, never waits for a running block, and is cheap enough for a host's
/// busiest thread. A queue lives as long as the process; blocks pending at its end never run.
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

  /// Submits `item` after `delay`; without a delay at once, in order with `async`. Items due at the
  /// same time keep their order.
  // NOLINTNEXTLINE(performance-unnecessary-value-param): for implementations to keep
  virtual void asyncAfter(Duration /*delay*/, std::shared_ptr<WorkItem> /*item*/) {}

  /// Whether nothing was submitted after `block`, which must not have started.
  virtual bool isNewest(const Block& /*block*/) const { return false; }

  /// Called last by the running block: blocks the queue until `group` is empty, then runs `then`
  /// before any other block. Runs `then` at once if the group is empty already. The group has to
  /// outlive the wait.
  // NOLINTNEXTLINE(performance-unnecessary-value-param): for implementations to keep
  virtual void wait(DispatchGroup& /*group*/, std::function<void()> /*then*/) {}
};

}  // namespace veltrano::internal

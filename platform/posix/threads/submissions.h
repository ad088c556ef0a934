#pragma once

#include <atomic>

#include "platform/work_queue.h"

namespace veltrano::internal {

/// A lock-free queue of blocks from any thread to the one that runs them (an intrusive MPSC linked
/// list). A push swaps the end of the list, then links the former end to the new block. A submitter
/// that is preempted between the two steps delays the blocks after its own.
class Submissions {
 public:
  /// Thread-safe. The list owns the block until it is taken.
  void push(Block* block) {
    block->next.store(nullptr, std::memory_order_relaxed);
    newest_.exchange(block, std::memory_order_seq_cst)
        ->next.store(block, std::memory_order_release);
  }

  /// Removes the oldest block; the caller owns it. Null when there is none, or when its submitter
  /// has not linked it yet. Running thread only.
  Block* takeOldest();

  /// The current end of the list: a block or the placeholder.
  const Block* newest() const { return newest_.load(std::memory_order_seq_cst); }

  /// Whether everything up to `end` is taken, if `end` is an earlier `newest()` that was the
  /// placeholder; false for a block, which the caller takes itself. Running thread only.
  bool hasReached(const Block* end) const { return end == &placeholder_ && oldest_ == end; }

  /// Running thread only. A push that is half done counts as a block.
  bool isEmpty() const { return oldest_ == &placeholder_ && newest() == &placeholder_; }

 private:
  struct Placeholder final : Block {
    void run() override {}
  };

  Placeholder placeholder_;        // keeps the list from being empty
  Block* oldest_ = &placeholder_;  // running thread only
  std::atomic<Block*> newest_{&placeholder_};
};

}  // namespace veltrano::internal

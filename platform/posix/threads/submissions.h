#pragma once

#include <atomic>

#include "platform/work_queue.h"

namespace veltrano::internal {

/// Blocks on their way from any thread to the one that runs them, in the order of submission. A
/// linked list to whose end a submitter hangs its block in two steps, neither of which waits: it
/// takes over the end, then links the former end to it. A submitter that is interrupted between the
/// two holds up the blocks behind its own until it goes on.
class Submissions {
 public:
  /// From any thread. The block belongs to the list until it is taken.
  void push(Block* block) {
    block->next.store(nullptr, std::memory_order_relaxed);
    newest_.exchange(block, std::memory_order_seq_cst)
        ->next.store(block, std::memory_order_release);
  }

  /// The oldest block, for the running thread to own. Null when there is none, or when a submitter
  /// has yet to link it.
  Block* takeOldest();

  /// The end of the list now: a block, or what stands there in place of one.
  const Block* newest() const { return newest_.load(std::memory_order_seq_cst); }

  /// For the running thread: whether nothing is left to take up to `end`, an earlier `newest()`
  /// that is not a block. One that is a block has to be taken itself.
  bool hasReached(const Block* end) const { return end == &placeholder_ && oldest_ == end; }

  /// For the running thread. What a submitter has begun to hang up counts.
  bool isEmpty() const { return oldest_ == &placeholder_ && newest() == &placeholder_; }

 private:
  struct Placeholder final : Block {
    void run() override {}
  };

  Placeholder placeholder_;        // so that the list is never without an end
  Block* oldest_ = &placeholder_;  // the running thread
  std::atomic<Block*> newest_{&placeholder_};
};

}  // namespace veltrano::internal

#pragma once

#include <atomic>

#include "platform/work_queue.h"

namespace veltrano {

/// Blocks on their way from any thread to the one that runs them, in the order of submission. A
/// linked list to whose end a submitter hangs its block in two steps, neither of which waits: it
/// takes over the end, then links the former end to it.
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

  /// The last block that has been submitted, for the running thread to compare with.
  const Block* newest() const { return newest_.load(std::memory_order_seq_cst); }

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

}  // namespace veltrano

#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

#include "platform/posix/system/system.h"
#include "platform/work_queue.h"

namespace veltrano::internal {

struct StandardThreads {
  template <class T>
  using Atomic = std::atomic<T>;
  using Bell = internal::Bell;
};

/// A lock-free queue of blocks from any thread to the one that runs them, the reader (an intrusive
/// MPSC linked list). A push swaps the end of the list, then links the former end to the new block.
/// A submitter that is preempted between the two steps delays the blocks after its own.
///
/// The reader may sleep while the list is empty. Some blocks are deferred: they leave it asleep
/// until there are as many as it has allowed. A test explores the interleavings with atomics and a
/// bell of its own.
template <class Node, class Threads>
class Submissions {
 public:
  enum class Reader { none, awake, asleep };

  /// Thread-safe. The list owns the block from then on. False if there is no reader.
  [[nodiscard]] bool submit(Node* block) {
    push(block);
    return reader_.load(std::memory_order_seq_cst) == Reader::awake || wake();
  }

  /// The same, but may leave the reader asleep.
  [[nodiscard, gnu::always_inline]] bool submitDeferred(Node* block) {
    block->isDeferred = reader_.load(std::memory_order_relaxed) == Reader::asleep;
    push(block);
    const Reader reader = reader_.load(std::memory_order_seq_cst);
    if (reader == Reader::awake) return true;
    // A submitter that stalls here may count for a later sleep: that wakes too early, never too
    // late.
    return (reader == Reader::asleep && 1 + deferred_.fetch_add(1, std::memory_order_relaxed) <
                                            limit_.load(std::memory_order_relaxed)) ||
           wake();
  }

  /// Thread-safe. Wakes the reader if it is asleep. False if there is none.
  bool wake() {
    Reader reader = Reader::asleep;
    if (reader_.compare_exchange_strong(reader, Reader::awake, std::memory_order_seq_cst))
      bell_.ring();
    return reader != Reader::none;
  }

  /// Thread-safe. Ends the current or next `sleep`, or `waitForRing`.
  void ring() { bell_.ring(); }

  /// Sleeps until a submission or a ring, or until `nextDue()`, if that has a value. May return
  /// early. Does not sleep if something was submitted or `isOver()`: both are checked only after
  /// its sleep is visible to submitters and to whoever stops it. Reader only.
  template <class NextDue, class IsOver>
  void sleep(std::size_t limit, NextDue nextDue, IsOver isOver) {
    bell_.clear();
    deferred_.store(0, std::memory_order_relaxed);
    limit_.store(limit, std::memory_order_relaxed);
    // A submitter pushes, then reads the reader's state; the reader sets it, then looks for
    // submissions. One of them sees the other.
    setReader(Reader::asleep);
    if (isEmpty() && !isOver()) bell_.wait(nextDue());
    setReader(Reader::awake);
  }

  /// Waits for a ring. Reader only.
  template <class Deadline>
  void waitForRing(Deadline deadline) {
    bell_.wait(deadline);
  }

  void setReader(Reader reader) { reader_.store(reader, std::memory_order_seq_cst); }

  /// Removes the oldest block; the caller owns it. Null when there is none, or when its submitter
  /// has not linked it yet. Reader only.
  Node* takeOldest() {
    const auto afterOldest = [this] { return oldest_->next.load(std::memory_order_acquire); };
    Node* next = afterOldest();
    if (oldest_ == &placeholder_) {
      if (next == nullptr) return nullptr;
      oldest_ = next;
      next = afterOldest();
    }
    if (next == nullptr) {
      // A block can be taken only when it has a successor: append the placeholder.
      if (newest() != oldest_) return nullptr;
      push(&placeholder_);
      next = afterOldest();
      if (next == nullptr) return nullptr;
    }
    return std::exchange(oldest_, next);
  }

  /// The current end of the list: a block or the placeholder.
  const Node* newest() const { return newest_.load(std::memory_order_seq_cst); }

  /// Whether everything up to `end` is taken, if `end` is an earlier `newest()` that was the
  /// placeholder; false for a block, which the caller takes itself. Reader only.
  bool hasReached(const Node* end) const { return end == &placeholder_ && oldest_ == end; }

  /// Reader only. A push that is half done counts as a block.
  bool isEmpty() const { return oldest_ == &placeholder_ && newest() == &placeholder_; }

 private:
  struct Placeholder final : Node {
    void run() override {}
  };

  [[gnu::always_inline]] void push(Node* block) {
    block->next.store(nullptr, std::memory_order_relaxed);
    newest_.exchange(block, std::memory_order_seq_cst)
        ->next.store(block, std::memory_order_release);
  }

  Placeholder placeholder_;       // keeps the list from being empty
  Node* oldest_ = &placeholder_;  // reader only
  typename Threads::template Atomic<Node*> newest_{&placeholder_};
  typename Threads::template Atomic<Reader> reader_{Reader::none};
  // Blocks deferred in this sleep, and how many wake the reader.
  typename Threads::template Atomic<std::size_t> deferred_{0};
  typename Threads::template Atomic<std::size_t> limit_{0};
  typename Threads::Bell bell_;
};

}  // namespace veltrano::internal

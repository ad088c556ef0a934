// Explores the interleavings of two submitters and a reader that falls asleep, in the memory model
// of C++. A lost wake-up leaves the reader asleep for good, which the explorer reports as a
// deadlock.
#include "platform/posix/threads/submissions.h"

#include <gtest/gtest.h>

#include <ostream>
#include <type_traits>

// Last, because it defines macros.
#include <relacy/relacy.hpp>
#undef new
#undef delete

using veltrano::internal::Submissions;

namespace {

// The explorer's orders are those of the standard.
rl::memory_order explored(std::memory_order order) {
  static_assert(int(std::memory_order::seq_cst) == int(rl::mo_seq_cst));
  return static_cast<rl::memory_order>(order);
}

struct ExploredThreads {
  template <class T>
  class Atomic {
   public:
    Atomic(T value) : value_(plain(value)) {}
    T load(std::memory_order order) const { return T(value_.load(explored(order), RL_INFO)); }
    void store(T value, std::memory_order order) {
      value_.store(plain(value), explored(order), RL_INFO);
    }
    T exchange(T value, std::memory_order order) {
      return T(value_.exchange(plain(value), explored(order), RL_INFO));
    }
    T fetch_add(T value, std::memory_order order) {
      return value_.fetch_add(value, explored(order), RL_INFO);
    }
    bool compare_exchange_strong(T& expected, T value, std::memory_order order) {
      Plain before = plain(expected);
      const bool isDone =
          value_.compare_exchange_strong(before, plain(value), explored(order), RL_INFO);
      expected = T(before);
      return isDone;
    }

   private:
    using Plain = typename std::conditional_t<std::is_enum_v<T>, std::common_type<int>,
                                              std::common_type<T>>::type;
    static Plain plain(T value) { return static_cast<Plain>(value); }

    rl::atomic<Plain> value_;
  };

  // Unlike the product's, it releases nothing if it is set already.
  class Bell {
   public:
    Bell() { event_.init(false, false, RL_INFO); }
    ~Bell() { event_.deinit(RL_INFO); }
    void ring() { event_.set(RL_INFO); }
    void wait(bool) { event_.wait(false, false, RL_INFO); }
    void clear() { event_.wait(true, false, RL_INFO); }  // acquires, which reset() does not

   private:
    rl::generic_event event_;
  };
};

struct Node {
  virtual ~Node() = default;
  virtual void run() {}
  ExploredThreads::Atomic<Node*> next{nullptr};
  bool isDeferred = false;
  int number = 0;
};

enum class Wakes {
  many,     // the third deferred block does, whoever submits it and however many have been read
  another,  // another block, or a wake-up, has what was deferred before it read
  stop,
};

// Thread 0 reads; 1 and 2 submit.
template <Wakes kWakes>
struct Exploration : rl::test_suite<Exploration<kWakes>, 3> {
  void thread(unsigned index) {
    if (index > 0) return submit(static_cast<int>(index));
    queue.setReader(Queue::Reader::awake);
    for (;;) {
      readAll();
      if (kWakes == Wakes::stop ? isOver.load(relaxed) : read == 3) return;
      queue.sleep(
          kWakes == Wakes::many ? 3 - read : 10, [] { return false; },
          [this] { return isOver.load(relaxed); });
      rl::yield(1, RL_INFO);  // a submitter may have to link its block
    }
  }

  void readAll() {
    while (Node* const node = queue.takeOldest()) {
      const int number = node->number;
      RL_ASSERT(number ==
                next[number / 10] + number / 10 * 10);  // each once, in its thread's order
      ++next[number / 10];
      ++read;
    }
  }

  // A reader that is only being started looks at everything before it sleeps.
  void submit(int index) {
    bool hasReader = queue.submitDeferred(block(index, 0));
    if (kWakes == Wakes::many && index == 1) hasReader = queue.submitDeferred(block(index, 1));
    if (kWakes == Wakes::another && index == 1) hasReader = queue.submit(block(index, 1));
    if (kWakes == Wakes::another && index == 2) hasReader = queue.wake();
    static_cast<void>(hasReader);
    if (kWakes != Wakes::stop || index == 1) return;
    isOver.store(true, relaxed);
    queue.ring();
  }

  Node* block(int index, int number) {
    Node& made = blocks[index - 1][number];
    made.number = index * 10 + number;
    return &made;
  }

  static constexpr std::memory_order relaxed = std::memory_order::relaxed;
  using Queue = Submissions<Node, ExploredThreads>;
  Queue queue;
  ExploredThreads::Atomic<bool> isOver{false};
  Node blocks[2][2];
  int next[3] = {};
  int read = 0;
};

template <Wakes kWakes>
void explore() {
  std::ostream nowhere(nullptr);
  for (const auto scheduler : {rl::random_scheduler_type, rl::fair_context_bound_scheduler_type}) {
    rl::test_params parameters;
    parameters.iteration_count = 20000;
    parameters.context_bound = 2;
    parameters.search_type = scheduler;
    parameters.progress_stream = &nowhere;
    EXPECT_TRUE(rl::simulate<Exploration<kWakes>>(parameters));
  }
}

}  // namespace

TEST(SubmissionsTest, NoWakeUpIsLostInAnyInterleaving) {
  explore<Wakes::many>();
  explore<Wakes::another>();
  explore<Wakes::stop>();
}

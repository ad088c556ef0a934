// Explores the interleavings of two submitters and a reader that falls asleep, in the memory model
// of C++. A lost wake-up leaves the reader asleep for good, which the explorer reports as a
// deadlock.
#include "platform/posix/threads/submissions.h"

#include <gtest/gtest.h>

#include <ostream>
#include <type_traits>
#include <vector>

// Last, because it defines macros.
#include <relacy/relacy.hpp>
#undef new
#undef delete

using veltrano::internal::Submissions;

namespace {

rl::memory_order explored(std::memory_order order) {
  switch (order) {
    case std::memory_order::relaxed:
      return rl::mo_relaxed;
    case std::memory_order::consume:
    case std::memory_order::acquire:
      return rl::mo_acquire;
    case std::memory_order::release:
      return rl::mo_release;
    case std::memory_order::acq_rel:
      return rl::mo_acq_rel;
    case std::memory_order::seq_cst:
      break;
  }
  return rl::mo_seq_cst;
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

  class Bell {
   public:
    void ring() {
      mutex_.lock(RL_INFO);
      ++rings_;
      condition_.notify_one(RL_INFO);
      mutex_.unlock(RL_INFO);
    }
    void wait(bool) {
      mutex_.lock(RL_INFO);
      while (rings_ == 0) condition_.wait(mutex_, RL_INFO);
      --rings_;
      mutex_.unlock(RL_INFO);
    }
    void clear() {
      mutex_.lock(RL_INFO);
      rings_ = 0;
      mutex_.unlock(RL_INFO);
    }

   private:
    rl::mutex mutex_;
    rl::condition_variable condition_;
    int rings_ = 0;
  };
};

struct Node {
  virtual ~Node() = default;
  virtual void run() = 0;
  ExploredThreads::Atomic<Node*> next{nullptr};
  bool isDeferred = false;
};

struct Numbered final : Node {
  void run() override {}
  int number = 0;
};

// Thread 0 reads; 1 and 2 submit, as the scenario says.
template <class Scenario>
struct Exploration : rl::test_suite<Exploration<Scenario>, 3> {
  using Queue = Submissions<Node, ExploredThreads>;

  void thread(unsigned index) {
    if (index > 0) return Scenario::submit(*this, index);
    queue.setReader(Queue::Reader::awake);
    for (;;) {
      readAll();
      if (Scenario::hasEnded(*this)) return;
      queue.sleep(
          Scenario::deferrable(*this), [] { return false; },
          [this] { return isOver.load(relaxed); });
      rl::yield(1, RL_INFO);  // a submitter may have to link its block
    }
  }

  void readAll() {
    while (Node* const node = queue.takeOldest()) {
      const int number = static_cast<Numbered*>(node)->number;
      RL_ASSERT(number ==
                next[number / 10] + number / 10 * 10);  // each once, in its thread's order
      ++next[number / 10];
      ++read;
    }
  }

  Node* block(unsigned thread, int number) {
    Numbered& made = blocks[thread - 1][number];
    made.number = static_cast<int>(thread) * 10 + number;
    return &made;
  }
  void submit(unsigned thread, int number) {
    if (!queue.submit(block(thread, number))) startReader();
  }
  void defer(unsigned thread, int number) {
    if (!queue.submitDeferred(block(thread, number))) startReader();
  }
  // The reader is being started: it looks at everything before it sleeps.
  void startReader() {}

  static constexpr std::memory_order relaxed = std::memory_order::relaxed;
  Queue queue;
  ExploredThreads::Atomic<bool> isOver{false};
  Numbered blocks[2][3];
  int next[3] = {};
  int read = 0;
};

// The third deferred block wakes the reader, whoever submits it and however many it has read.
struct ManyWake {
  template <class Test>
  static void submit(Test& test, unsigned thread) {
    for (int number = 0; number < 3 - static_cast<int>(thread); ++number)
      test.defer(thread, number);
  }
  template <class Test>
  static bool hasEnded(const Test& test) {
    return test.read == 3;
  }
  template <class Test>
  static std::size_t deferrable(const Test& test) {
    return 3 - test.read;
  }
};

// Another block, or a wake-up, has what was deferred before it read.
struct AnotherWakes {
  template <class Test>
  static void submit(Test& test, unsigned thread) {
    test.defer(thread, 0);
    if (thread == 1) test.submit(thread, 1);
    if (thread == 2 && !test.queue.wake()) test.startReader();
  }
  template <class Test>
  static bool hasEnded(const Test& test) {
    return test.next[1] == 2 && test.next[2] == 1;
  }
  template <class Test>
  static std::size_t deferrable(const Test&) {
    return 10;
  }
};

struct StopWakes {
  template <class Test>
  static void submit(Test& test, unsigned thread) {
    test.defer(thread, 0);
    if (thread == 1) return;
    test.isOver.store(true, Test::relaxed);
    test.queue.ring();
  }
  template <class Test>
  static bool hasEnded(const Test& test) {
    return test.isOver.load(Test::relaxed);
  }
  template <class Test>
  static std::size_t deferrable(const Test&) {
    return 10;
  }
};

template <class Scenario>
void explore() {
  std::ostream nowhere(nullptr);
  for (const auto scheduler : {rl::random_scheduler_type, rl::fair_context_bound_scheduler_type}) {
    rl::test_params parameters;
    parameters.iteration_count = 20000;
    parameters.context_bound = 2;
    parameters.search_type = scheduler;
    parameters.progress_stream = &nowhere;
    EXPECT_TRUE(rl::simulate<Exploration<Scenario>>(parameters));
  }
}

}  // namespace

TEST(SubmissionsTest, NoWakeUpIsLostInAnyInterleaving) {
  explore<ManyWake>();
  explore<AnotherWakes>();
  explore<StopWakes>();
}

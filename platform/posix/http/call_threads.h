#pragma once

#include <array>
#include <bitset>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>

#include "platform/endpoint_path.h"
#include "platform/mutex.h"
#include "platform/work_queue.h"

namespace veltrano::internal {

/// The threads that run what may block, in the host's code or in the system's resolver. The calls
/// of a lane run one at a time and in order, so that one that blocks holds up its own lane only.
///
/// At rest there is one thread. As long as a lane that no thread is busy with has or expects a
/// call, one thread is free to take it: whichever thread expects or takes a call starts another if
/// it has to. So there are at most as many threads as lanes have or expect calls at one time, but
/// at least one. A free thread ends when another is free. Thread-safe.
class CallThreads : public std::enable_shared_from_this<CallThreads> {
 public:
  /// Lookups share a lane: what waits for one that is stuck would need its answer, too. The others
  /// are those of the first path; add the path's index.
  enum Lane : std::size_t {
    lookup,
    preparation,
    outcome = preparation + kEndpointPathCount,
    laneCount = outcome + kEndpointPathCount
  };
  using Lanes = std::bitset<laneCount>;

  /// Starts the first thread. False when no thread can be started.
  bool start();

  /// Prepares for calls in these lanes, until `stopExpecting`. False when there is no thread and
  /// none can be started. Never call it on a thread whose descriptors are not the host's: a thread
  /// that it starts shares them.
  bool expect(Lanes lanes);
  void stopExpecting(Lanes lanes);

  /// Runs `call` on one of the threads, later; destroys it without a call after `shutDown`. The
  /// thread that is free for an expected call stays so until this one has it. Needs no memory.
  void add(std::size_t lane, std::unique_ptr<Block> call, Lanes noLongerExpected = {});

  /// Lets the threads end once the lanes are empty, and waits for that until `deadline`. Destroys
  /// the calls that have not started by then.
  void shutDown(std::chrono::steady_clock::time_point deadline);

 private:
  struct Calls {
    Block* first = nullptr;  // the lane owns it and those linked to it
    Block* last = nullptr;
    int expected = 0;     // how many may still add some
    bool isBusy = false;  // a thread is in one of them

    std::unique_ptr<Block> takeFirst();
  };
  void changeExpected(Lanes lanes, int by) REQUIRES(mutex_);
  bool startThread() REQUIRES(mutex_);
  void startThreadIfNeeded() REQUIRES(mutex_);
  void serve();

  Mutex mutex_;
  std::condition_variable changed_;
  std::array<Calls, laneCount> lanes_ GUARDED_BY(mutex_);
  int threads_ GUARDED_BY(mutex_) = 0;
  int free_ GUARDED_BY(mutex_) = 0;  // threads that are in no call
  bool isOver_ GUARDED_BY(mutex_) = false;
};

}  // namespace veltrano::internal

#include "platform/posix/http/call_threads.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "platform/host_callback.h"
#include "platform/posix/system/background_thread.h"
#include "platform/posix/system/system.h"

namespace veltrano::internal {
namespace {

// What debuggers show of a thread that is free, or in a call of a lane.
constexpr char kFree[] = "veltrano.calls";
constexpr const char* kNames[] = {"veltrano.lookup", "veltrano.prep", "veltrano.prep",
                                  "veltrano/track", "veltrano/heartb"};
static_assert(std::size(kNames) == CallThreads::laneCount);

}  // namespace

bool CallThreads::start() {
  const Lock lock(mutex_);
  return startThread();
}

bool CallThreads::expect(Lanes lanes) {
  const Lock lock(mutex_);
  changeExpected(lanes, 1);
  startThreadIfNeeded();
  if (threads_ == 0) changeExpected(lanes, -1);
  return threads_ > 0;
}

void CallThreads::stopExpecting(Lanes lanes) {
  const Lock lock(mutex_);
  changeExpected(lanes, -1);
}

void CallThreads::add(std::size_t lane, std::unique_ptr<Block> call, Lanes noLongerExpected) {
  const Lock lock(mutex_);
  changeExpected(noLongerExpected, -1);
  if (isOver_) return;
  Calls& calls = lanes_[lane];
  Block* const added = call.release();
  if (calls.first == nullptr)
    calls.first = added;
  else
    calls.last->next = added;
  calls.last = added;
  changed_.notify_all();
}

void CallThreads::shutDown(std::chrono::steady_clock::time_point deadline) {
  Lock lock(mutex_);
  isOver_ = true;
  changed_.notify_all();
  while (threads_ > 0 && std::chrono::steady_clock::now() < deadline)
    changed_.wait_until(lock.standard(), deadline);
  for (Calls& lane : lanes_) {
    while (lane.first != nullptr) {
      std::unique_ptr<Block> dropped = lane.takeFirst();
      lock.unlock();
      dropped = nullptr;
      lock.lock();
    }
  }
}

void CallThreads::changeExpected(Lanes lanes, int by) {
  for (std::size_t i = 0; i < laneCount; ++i) lanes_[i].expected += by * lanes[i];
}

bool CallThreads::startThread() {
  try {
    if (!startBackgroundThread(kFree, [self = shared_from_this()] { self->serve(); })) return false;
  } catch (const std::bad_alloc&) {
    return false;
  }
  ++threads_;
  ++free_;
  return true;
}

// If it fails, the calls wait for a thread that returns.
void CallThreads::startThreadIfNeeded() {
  const auto needsOne = [](const Calls& lane) {
    return !lane.isBusy && (lane.first != nullptr || lane.expected > 0);
  };
  if (free_ == 0 && std::any_of(lanes_.begin(), lanes_.end(), needsOne)) startThread();
}

void CallThreads::serve() {
  Calls* busy = nullptr;
  // A call may end its thread with pthread_exit.
  const AtScopeEnd replace{[&] {
    if (busy == nullptr || isForkedChild()) return;
    const Lock lock(mutex_);
    busy->isBusy = false;
    if (--threads_ == 0 && !isOver_) startThread();
    startThreadIfNeeded();
    changed_.notify_all();
  }};
  Lock lock(mutex_);
  for (;;) {
    auto* const lane = std::find_if(lanes_.begin(), lanes_.end(), [](const Calls& each) {
      return !each.isBusy && each.first != nullptr;
    });
    if (lane != lanes_.end()) {
      std::unique_ptr<Block> call = lane->takeFirst();
      lane->isBusy = true;
      busy = lane;
      --free_;
      startThreadIfNeeded();
      nameThisThread(kNames[lane - lanes_.begin()]);
      lock.unlock();
      call->run();
      call = nullptr;
      if (isForkedChild()) return;  // the call forked, and this is the child
      nameThisThread(kFree);
      lock.lock();
      ++free_;
      busy = nullptr;
      lane->isBusy = false;
    } else if (isOver_ || free_ > 1) {
      --free_;
      --threads_;
      changed_.notify_all();
      return;
    } else {
      changed_.wait(lock.standard());
    }
  }
}

std::unique_ptr<Block> CallThreads::Calls::takeFirst() {
  return std::unique_ptr<Block>(std::exchange(first, first->next.load()));
}

}  // namespace veltrano::internal

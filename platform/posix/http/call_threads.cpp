#include "platform/posix/http/call_threads.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/host_callback.h"
#include "platform/posix/system/background_thread.h"
#include "platform/posix/system/system.h"

namespace veltrano::internal {
namespace {

// What debuggers show.
constexpr char kFree[] = "veltrano.calls";
constexpr char kPreparation[] = "veltrano.prep";
constexpr char kLookup[] = "veltrano.lookup";

}  // namespace

bool CallThreads::start() {
  const Lock lock(mutex_);
  return startThread();
}

void CallThreads::setName(std::size_t path, std::string name) {
  const Lock lock(mutex_);
  paths_[path].name = std::move(name);
}

bool CallThreads::expect(std::size_t path) {
  const Lock lock(mutex_);
  ++paths_[path].expected;
  startThreadIfNeeded();
  if (threads_ == 0) --paths_[path].expected;
  return threads_ > 0;
}

void CallThreads::add(std::size_t path, Work work, std::shared_ptr<Call> call, bool isLast) {
  const Lock lock(mutex_);
  if (isOver_) return;
  Lane& lane = paths_[path].lanes[work];
  call->isLast_ = isLast;
  Call* const added = call.get();
  (lane.first == nullptr ? lane.first : lane.last->next_) = std::move(call);
  lane.last = added;
  changed_.notify_all();
}

void CallThreads::shutDown(std::chrono::steady_clock::time_point deadline) {
  Lock lock(mutex_);
  isOver_ = true;
  changed_.notify_all();
  while (threads_ > 0 && std::chrono::steady_clock::now() < deadline)
    changed_.wait_until(lock.standard(), deadline);
  for (;;) {
    const auto [path, work] = find(true);
    if (path == nullptr) return;
    std::shared_ptr<Call> dropped = takeCall(*path, work);
    lock.unlock();
    dropped = nullptr;
    lock.lock();
  }
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
  const auto needsOne = [](const Path& path) {
    return std::any_of(path.lanes.begin(), path.lanes.end(), [&](const Lane& lane) {
      return !lane.isBusy && (lane.first != nullptr || path.expected > 0);
    });
  };
  if (free_ == 0 && std::any_of(paths_.begin(), paths_.end(), needsOne)) startThread();
}

void CallThreads::serve() {
  // A call may end its thread with pthread_exit.
  struct Replacement {
    ~Replacement() {
      if (busy == nullptr || isForkedChild()) return;
      const Lock lock(threads.mutex_);
      busy->isBusy = false;
      if (--threads.threads_ == 0 && !threads.isOver_) threads.startThread();
      threads.startThreadIfNeeded();
      threads.changed_.notify_all();
    }
    CallThreads& threads;
    Lane* busy = nullptr;
  };
  Replacement replacement{*this};
  Lock lock(mutex_);
  for (;;) {
    const auto [path, work] = find(false);
    if (path != nullptr) {
      std::shared_ptr<Call> call = takeCall(*path, work);
      Lane& lane = path->lanes[work];
      lane.isBusy = true;
      replacement.busy = &lane;
      --free_;
      startThreadIfNeeded();
      nameThisThread(work == preparation ? kPreparation
                     : work == lookup    ? kLookup
                                         : path->name.c_str());
      lock.unlock();
      call->run();
      call = nullptr;
      if (isForkedChild()) return;  // the call forked, and this is the child
      nameThisThread(kFree);
      lock.lock();
      ++free_;
      replacement.busy = nullptr;
      lane.isBusy = false;
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

// A lane with a call to start; null when there is none.
std::pair<CallThreads::Path*, CallThreads::Work> CallThreads::find(bool inBusyLanesToo) {
  for (Path& path : paths_)
    for (const Work work : {preparation, lookup, outcome})
      if (const Lane& lane = path.lanes[work];
          lane.first != nullptr && (inBusyLanesToo || !lane.isBusy))
        return {&path, work};
  return {};
}

std::shared_ptr<Call> CallThreads::takeCall(Path& path, Work work) {
  Lane& lane = path.lanes[work];
  std::shared_ptr<Call> call = std::move(lane.first);
  lane.first = std::move(call->next_);
  if (call->isLast_) --path.expected;
  return call;
}

}  // namespace veltrano::internal

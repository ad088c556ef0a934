#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "platform/mutex.h"

namespace veltrano::internal {

/// A call that may block. Linked into its lane, so that adding it needs no memory.
class Call {
 public:
  virtual ~Call() = default;
  virtual void run() = 0;

 private:
  friend class CallThreads;
  std::shared_ptr<Call> next_;  // guarded by the mutex of CallThreads
  bool isLast_ = false;         // of what was expected
};

template <class Function>
std::shared_ptr<Call> makeCall(Function function) {
  struct FunctionCall final : Call {
    explicit FunctionCall(Function its) : function(std::move(its)) {}
    void run() override { function(); }
    Function function;
  };
  return std::make_shared<FunctionCall>(std::move(function));
}

/// The threads that run what may block, in the host's code or in the system's resolver. The calls
/// of a lane run one at a time and in order, so that one that blocks holds up its own lane only.
///
/// At rest there is one thread. As long as a lane that no thread is busy with has or expects a
/// call, one thread is free to take it: whichever thread expects or takes a call starts another if
/// it has to. A free thread that is not needed ends. Thread-safe.
class CallThreads : public std::enable_shared_from_this<CallThreads> {
 public:
  static constexpr std::size_t kPaths = 2;
  enum Work : std::size_t { preparation, lookup, outcome, workCount };  // each path's lanes

  /// Starts the first thread. False when no thread can be started.
  bool start();

  /// What debuggers show of a thread that runs an outcome of `path`.
  void setName(std::size_t path, std::string name);

  /// Prepares for calls of `path`, up to one that is added as the last. False when there is no
  /// thread and none can be started. Never call it on a thread whose descriptors are not the
  /// host's: a thread that it starts shares them.
  bool expect(std::size_t path);

  /// Runs `call` on one of the threads, later. Drops it after `shutDown`.
  void add(std::size_t path, Work work, std::shared_ptr<Call> call, bool isLast = false);

  /// Lets the threads end once the lanes are empty, and waits for that until `deadline`. Drops the
  /// calls that have not started by then.
  void shutDown(std::chrono::steady_clock::time_point deadline);

 private:
  struct Lane {
    std::shared_ptr<Call> first = {};
    Call* last = nullptr;
    bool isBusy = false;  // a thread is in one of its calls
  };
  struct Path {
    std::string name = {};
    std::array<Lane, workCount> lanes = {};
    int expected = 0;
  };
  bool startThread() REQUIRES(mutex_);
  void startThreadIfNeeded() REQUIRES(mutex_);
  void serve();
  std::pair<Path*, Work> find(bool inBusyLanesToo) REQUIRES(mutex_);
  static std::shared_ptr<Call> takeCall(Path& path, Work work);

  Mutex mutex_;
  std::condition_variable changed_;
  std::array<Path, kPaths> paths_ GUARDED_BY(mutex_);
  int threads_ GUARDED_BY(mutex_) = 0;
  int free_ GUARDED_BY(mutex_) = 0;  // threads that are in no call
  bool isOver_ GUARDED_BY(mutex_) = false;
};

}  // namespace veltrano::internal

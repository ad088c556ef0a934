#include "installation/shutdown.h"

#include <future>
#include <utility>

#include "installation/inert_library.h"
#include "platform/host_callback.h"
#include "platform/posix/http/exit_gate.h"
#include "upload/rules/final_flush.h"

namespace veltrano::internal {
namespace {

// How long a shutdown waits, after its deadline, for callbacks that are still running.
constexpr std::chrono::milliseconds kGrace{250};

// Starts no more callbacks. False if one still runs at `deadline`.
bool stopCallingHost(Shutdown::Clock::time_point deadline) {
  callbacksDisabled = true;
  while (HostCall::count() > 0 && Shutdown::Clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return HostCall::count() == 0;
}

}  // namespace

bool Shutdown::run(Clock::time_point deadline) {
  {
    std::unique_lock lock(mutex_);
    if (std::exchange(hasBegun_, true)) {
      // It may be running below, on this thread: it destroys what callbacks captured.
      if (thread_ == std::this_thread::get_id()) return wasComplete_;
      ended_.wait(lock, [this] { return hasEnded_; });
      return wasComplete_;
    }
    thread_ = std::this_thread::get_id();
  }
  struct End {
    ~End() {
      const std::lock_guard lock(shutdown.mutex_);
      shutdown.hasEnded_ = true;
      shutdown.ended_.notify_all();
    }
    Shutdown& shutdown;
  };
  const End end{*this};
  bool isFlushed = false;
  dropExceptions([&] { isFlushed = flushUntil(deadline); });
  return wasComplete_ = stop(deadline) && isFlushed;
}

// Flushes as if the application were closed. False if the deadline passes first.
bool Shutdown::flushUntil(Clock::time_point deadline) {
  services_.application.setState(ApplicationState::background);
  services_.urlSession.ignoreRetryAfter();
  const auto statistics = [] { return Library::current().accounting().statistics(); };
  const auto flush = [&] {
    if (ExitGate::isClosed()) return false;
    services_.notificationCenter.post(kApplicationDidEnterBackground);
    struct Pending {
      ~Pending() { ended.set_value(); }
      std::promise<void> ended;
    };
    auto pending = std::make_shared<Pending>();
    const auto ended = pending->ended.get_future();
    // Destroyed after three rounds: the running block may still see the foreground and replace
    // the final flush, queued after round one; that flush's completion may track more, queued
    // after round two.
    keepForRounds(3, std::move(pending));
    return ended.wait_until(deadline) == std::future_status::ready;
  };
  const auto pause = [&](Duration time) {
    if (Clock::now() + time >= deadline) return false;
    std::this_thread::sleep_for(time);
    return true;
  };
  return flushWithRetries(statistics, flush, pause);
}

// Keeps `object` until all that is queued now has run on the work queue, `rounds` times over.
// Destroys it early if memory runs out.
void Shutdown::keepForRounds(int rounds, std::shared_ptr<void> object) {
  services_.workQueue.async([this, rounds, object = std::move(object)]() mutable {
    if (rounds > 1) keepForRounds(rounds - 1, std::move(object));
  });
}

// True if nothing was left.
bool Shutdown::stop(Clock::time_point deadline) {
  inertLibrary().accounting().restore(Library::current().accounting());
  Library& library = *Library::exchangeCurrent(&inertLibrary());
  services_.timers.stop();
  services_.workQueue.stop();
  // While the process exits, the gate has stopped the network threads.
  bool isComplete = ExitGate::isClosed() || services_.urlSession.shutDown(deadline);
  isComplete &= services_.workQueue.waitForEnd(Clock::now() + kGrace);
  isComplete &= stopCallingHost(Clock::now() + kGrace);
  library.releaseCallbacks();
  inertLibrary().accounting().restore(library.accounting());
  const Statistics last = inertLibrary().accounting().statistics();
  return isComplete && last.waiting + last.inFlight == 0;
}

}  // namespace veltrano::internal

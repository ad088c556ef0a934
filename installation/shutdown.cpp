#include "installation/shutdown.h"

#include <algorithm>
#include <exception>

#include "installation/inert_library.h"
#include "platform/host_callback.h"

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
  Lock lock(mutex_);
  const bool isEarlier = deadline < deadline_;
  deadline_ = std::min(deadline_, deadline);
  changed_.notify_all();
  if (phase_ == Phase::unstarted) {
    phase_ = Phase::flushing;
    thread_ = std::this_thread::get_id();
    lock.unlock();
    dropExceptions([&] { flush(); });
    const bool isComplete = stop();
    lock.lock();
    wasComplete_ = isComplete;
    phase_ = Phase::ended;
    changed_.notify_all();
  } else if (thread_ != std::this_thread::get_id()) {
    const Phase awaited = isEarlier ? Phase::stopping : Phase::ended;
    while (phase_ < awaited) changed_.wait(lock.standard());
    if (phase_ == Phase::stopping) {
      lock.unlock();
      services_.urlSession.shutDown(deadline);
      lock.lock();
    }
    while (phase_ != Phase::ended) changed_.wait(lock.standard());
  }  // else it is running below, on this thread: it destroys what callbacks captured
  return wasComplete_;
}

// Flushes as if the application were closed, until the deadline.
void Shutdown::flush() {
  services_.reports.set(&DeviceFacts::applicationState, ApplicationState::background);
  services_.urlSession.ignoreRetryAfter();
  flushWithRetries([this] { return flushOnce(); }, [this](Duration time) { return pause(time); });
}

// None if the deadline passes first.
std::optional<FlushResult> Shutdown::flushOnce() {
  {
    const Lock lock(mutex_);
    if (hasPassed() || HostCode::isProcessExiting) return std::nullopt;
    flushed_.reset();
  }
  services_.notificationCenter.post(kApplicationDidEnterBackground);
  // Three rounds: the running block may still see the foreground and replace the final flush,
  // queued after round one; that flush's completion may track more, queued after round two.
  noteFlushAfterRounds(3);
  Lock lock(mutex_);
  while (!flushed_ && !hasPassed()) changed_.wait_until(lock.standard(), deadline_);
  return flushed_;
}

// False if the deadline comes first.
bool Shutdown::pause(Duration time) {
  const auto end = Clock::now() + time;
  Lock lock(mutex_);
  while (end < deadline_ && Clock::now() < end) changed_.wait_until(lock.standard(), end);
  return end < deadline_;
}

// Notes the flush's result once all that is queued now has run on the work queue, `rounds` times
// over. If memory runs out, the flush has failed.
void Shutdown::noteFlushAfterRounds(int rounds) {
  const auto note = [this](const FlushResult& result) {
    const Lock lock(mutex_);
    flushed_ = result;
    changed_.notify_all();
  };
  try {
    services_.workQueue.async([this, rounds, note] {
      if (rounds > 1) return noteFlushAfterRounds(rounds - 1);
      note(Library::current().lastFlush());
    });
  } catch (const std::exception&) {
    note({true, true});
  }
}

// True if nothing was left.
bool Shutdown::stop() {
  Library& library = Library::replaceCurrent(inertLibrary());
  services_.timers.stop();
  services_.workQueue.stop();
  Lock lock(mutex_);
  phase_ = Phase::stopping;
  changed_.notify_all();
  const auto deadline = deadline_;
  lock.unlock();
  // While the process exits, the gate has stopped the network threads.
  bool isComplete = HostCode::isProcessExiting || services_.urlSession.shutDown(deadline);
  isComplete &= services_.workQueue.waitForEnd(Clock::now() + kGrace);
  isComplete &= stopCallingHost(Clock::now() + kGrace);
  library.end();
  const Statistics last = library.accounting().statistics();
  return isComplete && last.droppedByShutDown + last.inFlight == 0;
}

}  // namespace veltrano::internal

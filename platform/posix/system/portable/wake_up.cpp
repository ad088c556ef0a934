#include <fcntl.h>
#include <unistd.h>

#include <condition_variable>

#include "platform/mutex.h"
#include "platform/posix/system/background_thread.h"
#include "platform/posix/system/system.h"

namespace veltrano::internal {

// A pipe, and a thread that writes to it when the time has come.
struct WakeUp::State {
  ~State() {
    for (const int end : pipe) close(end);
  }

  // Opens the pipe; false when the process is out of descriptors.
  bool open() {
    if (::pipe(pipe) != 0) return false;
    for (const int end : pipe) {
      fcntl(end, F_SETFD, FD_CLOEXEC);
      fcntl(end, F_SETFL, O_NONBLOCK);
    }
    return true;
  }

  void run() {
    Lock lock(mutex);
    while (!hasEnded) {
      if (!due) {
        changed.wait(lock.standard());
      } else if (std::chrono::steady_clock::now() < *due) {
        changed.wait_until(lock.standard(), *due);
      } else {
        due.reset();
        hasInput = write(pipe[1], "", 1) == 1;
      }
    }
  }

  int pipe[2] = {-1, -1};
  Mutex mutex;
  std::condition_variable changed;
  std::optional<Time> due GUARDED_BY(mutex);
  bool hasInput GUARDED_BY(mutex) = false;
  bool hasEnded GUARDED_BY(mutex) = false;
};

WakeUp::~WakeUp() {
  if (state_ == nullptr) return;
  const Lock lock(state_->mutex);
  state_->hasEnded = true;
  state_->changed.notify_all();
}

int WakeUp::descriptor() {
  if (state_ == nullptr) {
    auto state = std::make_shared<State>();
    if (!state->open() || !startBackgroundThread("veltrano-wake", [state] { state->run(); }))
      return -1;
    state_ = std::move(state);
  }
  return state_->pipe[0];
}

void WakeUp::set(std::optional<Time> time) {
  if (state_ == nullptr) return;
  const Lock lock(state_->mutex);
  char input = 0;
  if (state_->hasInput) state_->hasInput = read(state_->pipe[0], &input, 1) != 1;
  state_->due = time;
  state_->changed.notify_all();
}

}  // namespace veltrano::internal

#include <condition_variable>
#include <mutex>

#include "platform/posix/system/system.h"

namespace veltrano::internal {

struct Bell::State {
  std::mutex mutex;
  std::condition_variable rung;
  bool isRung = false;  // guarded by mutex
};

Bell::Bell() : state_(std::make_unique<State>()) {}
Bell::~Bell() = default;

void Bell::ring() {
  const std::lock_guard lock(state_->mutex);
  state_->isRung = true;
  state_->rung.notify_one();
}

void Bell::wait(std::optional<std::chrono::steady_clock::time_point> deadline) {
  std::unique_lock lock(state_->mutex);
  while (!state_->isRung) {
    if (!deadline) {
      state_->rung.wait(lock);
    } else if (state_->rung.wait_until(lock, *deadline) == std::cv_status::timeout) {
      break;
    }
  }
  state_->isRung = false;
}

void Bell::clear() {
  const std::lock_guard lock(state_->mutex);
  state_->isRung = false;
}

}  // namespace veltrano::internal

#include <condition_variable>

#include "platform/mutex.h"
#include "platform/posix/system/system.h"

namespace veltrano::internal {

struct Bell::State {
  Mutex mutex;
  std::condition_variable rung;
  bool isRung GUARDED_BY(mutex) = false;
};

Bell::Bell() : state_(std::make_unique<State>()) {}
Bell::~Bell() = default;

void Bell::ring() {
  const Lock lock(state_->mutex);
  state_->isRung = true;
  state_->rung.notify_one();
}

void Bell::wait(std::optional<std::chrono::steady_clock::time_point> deadline) {
  Lock lock(state_->mutex);
  while (!state_->isRung) {
    if (!deadline) {
      state_->rung.wait(lock.standard());
    } else if (state_->rung.wait_until(lock.standard(), *deadline) == std::cv_status::timeout) {
      break;
    }
  }
  state_->isRung = false;
}

void Bell::clear() {
  const Lock lock(state_->mutex);
  state_->isRung = false;
}

}  // namespace veltrano::internal

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>

#include "platform/posix/system/system.h"

namespace veltrano::internal {

struct WakeUp::State {
  explicit State(int opened) : timer(opened) {}
  ~State() { close(timer); }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  const int timer;
};

WakeUp::~WakeUp() = default;

int WakeUp::descriptor() {
  if (state_ == nullptr) {
    const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (timer < 0) return -1;
    state_ = std::make_shared<State>(timer);
  }
  return state_->timer;
}

void WakeUp::set(std::optional<Time> time) {
  if (state_ == nullptr) return;
  itimerspec setting = {};  // all zeros: never
  if (time) {
    const auto instant = std::max(time->time_since_epoch(), std::chrono::nanoseconds(1));
    const auto seconds = std::chrono::floor<std::chrono::seconds>(instant);
    setting.it_value.tv_sec = seconds.count();
    setting.it_value.tv_nsec = (instant - seconds).count();
  }
  timerfd_settime(state_->timer, TFD_TIMER_ABSTIME, &setting, nullptr);
}

}  // namespace veltrano::internal

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>

#include "platform/posix/system/system.h"

namespace veltrano::internal {
namespace {

#ifdef SYS_futex_time64  // on machines with 32 bits
constexpr long kFutex = sizeof(time_t) > 4 ? SYS_futex_time64 : SYS_futex;
#else
constexpr long kFutex = SYS_futex;
#endif

}  // namespace

struct Bell::State {
  std::atomic<std::uint32_t> isRung{0};
};

Bell::Bell() : state_(std::make_unique<State>()) {}
Bell::~Bell() = default;

void Bell::ring() {
  if (state_->isRung.exchange(1) == 0)
    syscall(kFutex, &state_->isRung, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void Bell::wait(std::optional<std::chrono::steady_clock::time_point> deadline) {
  timespec instant = {};
  if (deadline) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(deadline->time_since_epoch());
    instant.tv_sec = static_cast<time_t>(seconds.count());
    instant.tv_nsec = static_cast<long>((deadline->time_since_epoch() - seconds).count());
  }
  while (state_->isRung.exchange(0) == 0) {
    const long result = syscall(kFutex, &state_->isRung, FUTEX_WAIT_BITSET_PRIVATE, 0,
                                deadline ? &instant : nullptr, nullptr, FUTEX_BITSET_MATCH_ANY);
    if (result != 0 && errno == ETIMEDOUT) return;
  }
}

void Bell::clear() {
  state_->isRung = 0;
}

}  // namespace veltrano::internal

#include "installation/announcements.h"

#include <utility>

#include "platform/host_callback.h"

namespace veltrano::internal {

void Announcements::announce(std::string_view name, std::function<void()> change) {
  dropExceptions([&] {
    auto announcement = [this, name, change = std::move(change)] {
      if (isStopped_) return;
      change();
      center_.post(name);
    };
    {
      const Lock lock(mutex_);
      pending_.push_back(std::move(announcement));
    }
    timers_.performOnMainThread([this] { announcePending(); });
  });
}

// Called on the main thread.
void Announcements::announcePending() {
  for (;;) {
    std::function<void()> next;
    {
      const Lock lock(mutex_);
      if (pending_.empty()) return;
      next = std::move(pending_.front());
      pending_.pop_front();
    }
    next();
    if (isForkedChild()) return;  // a callback forked
  }
}

}  // namespace veltrano::internal

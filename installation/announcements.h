#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <string_view>

#include "platform/mutex.h"
#include "platform/notification_center.h"
#include "platform/posix/threads/run_loop.h"

namespace veltrano::internal {

/// Announces to the library, on the main thread, what the host reports on any thread. Thread-safe.
class Announcements {
 public:
  Announcements(PosixTimers& timers, LocalNotificationCenter& center)
      : timers_(timers), center_(center) {}

  /// Makes `change` and then posts `name`: at once on the main thread, else when its run loop runs;
  /// in the order of the calls. No-op if memory runs out.
  void announce(std::string_view name, std::function<void()> change);

  /// Announces nothing any more.
  void stop() { isStopped_ = true; }

 private:
  void announcePending();

  PosixTimers& timers_;
  LocalNotificationCenter& center_;
  std::atomic<bool> isStopped_{false};
  Mutex mutex_;
  std::deque<std::function<void()>> pending_ GUARDED_BY(mutex_);
};

}  // namespace veltrano::internal

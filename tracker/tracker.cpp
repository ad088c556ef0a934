#include "tracker/tracker.h"

namespace veltrano {

Tracker& Tracker::shared() {
  static Tracker& instance = *new Tracker;
  return instance;
}

Tracker::Tracker()
    : dispatchQueue_(*platform().workQueue), flushWorkItem_(std::make_shared<WorkItem>([] {})) {
  registerForNotifications();
  startFlushCycle();
}

}  // namespace veltrano

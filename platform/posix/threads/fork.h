// A forked child has a copy of the library's memory but none of its threads, and locks may be held
// there for good. So the platform does nothing at all in such a child; every service asks here
// before it takes a lock or counts on a thread.
#pragma once

#include "platform/host_callback.h"

namespace veltrano {

/// Begins to notice forks. Safe to call from any thread and more than once.
void watchForks();

}  // namespace veltrano

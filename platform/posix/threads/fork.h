// A forked child has a copy of the library's memory but none of its threads, and locks may be held
// forever. The facade finds an inert library there. Everything else that a host can call checks
// `isForkedChild` first, and so does code that continues after a callback, which may have forked.
#pragma once

#include "platform/host_callback.h"

namespace veltrano::internal {

/// Starts to detect forks. Thread-safe; repeated calls are no-ops.
void watchForks();

}  // namespace veltrano::internal

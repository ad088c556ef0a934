// A forked child has a copy of the library's memory but none of its threads, and locks may be held
// there for good. The facade finds an inert library there. What else a host can call asks
// `isForkedChild` first, and so does whatever goes on after a callback, which may have forked.
#pragma once

#include "platform/host_callback.h"

namespace veltrano::internal {

/// Begins to notice forks. Safe to call from any thread and more than once.
void watchForks();

}  // namespace veltrano::internal

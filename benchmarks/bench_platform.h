#pragma once

#include "platform/platform.h"

namespace bench {

/// Makes the services of a POSIX system the library's platform, but for the network, which is
/// `session`, and the log, which is dropped. Without a `workQueue` that is the POSIX one as well.
void installBenchPlatform(veltrano::internal::ZKURLSessionManager& session,
                          veltrano::internal::WorkQueue* workQueue = nullptr);

/// Tells the library that the application has gone to the background.
void enterBackground();

/// Returns when everything that was tracked before on this thread has been recorded and uploaded.
void drainTracker();

}  // namespace bench

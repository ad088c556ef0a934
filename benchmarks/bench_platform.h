#pragma once

#include "platform/platform.h"

namespace bench {

/// Installs the POSIX platform, but with `session` as the network, without a log, and with
/// `workQueue` unless that is null.
void installBenchPlatform(veltrano::internal::ZKURLSessionManager& session,
                          veltrano::internal::WorkQueue* workQueue = nullptr);

/// Reports that the application has entered the background.
void enterBackground();

}  // namespace bench

#pragma once

#include <functional>
#include <string_view>

namespace veltrano::internal {

/// Runs `body` on a new, detached thread. The thread blocks all signals except its own faults, such
/// as SIGSEGV, so that the host's handlers do not run on it. `name` is for debuggers. False when
/// no thread can be started.
bool startBackgroundThread(std::string_view name, std::function<void()> body);

}  // namespace veltrano::internal

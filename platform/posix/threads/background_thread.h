#pragma once

#include <functional>
#include <string_view>

namespace veltrano::internal {

/// Runs `body` on a new thread, detached and with all signals blocked but those of the thread's own
/// faults, such as SIGSEGV, so that no other handler of the host runs there. `name` is cut to the
/// 15 bytes that the system keeps. False when there is no thread to be had.
bool startBackgroundThread(std::string_view name, std::function<void()> body);

/// Whether the calling thread is one of those.
bool isBackgroundThread() noexcept;

}  // namespace veltrano::internal

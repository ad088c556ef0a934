#pragma once

#include <functional>
#include <string_view>

namespace veltrano {

/// Runs `body` on a new thread, detached and with all signals blocked, so that the host's signal
/// handlers never run there. `name` is cut to the 15 bytes that the system keeps. False when there
/// is no thread to be had.
bool startBackgroundThread(std::string_view name, std::function<void()> body);

}  // namespace veltrano

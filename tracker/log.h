#pragma once

#include <string>

#include "tracker/log_rendering.h"
#include "veltrano/veltrano.h"

namespace veltrano {

/// Writes `message` to the standard output behind the library's name and the time of day.
void writeLogLine(const std::string& message);

/// Writes a diagnostic line put together from `pieces`, each rendered as `render` says, while
/// `Veltrano::isLoggerEnabled` is true. Costs next to nothing while it is false. From any thread.
template <class... Pieces>
void log(const Pieces&... pieces) {
  if (!Veltrano::isLoggerEnabled.load(std::memory_order_relaxed)) return;
  std::string message;
  (render(message, pieces), ...);
  writeLogLine(message);
}

}  // namespace veltrano

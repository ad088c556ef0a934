#include "platform/posix/device/standard_output.h"

#include <cstdio>
#include <string>
#include <utility>

#include "platform/host_callback.h"

namespace veltrano {

PosixStandardOutput::PosixStandardOutput(std::function<void(std::string_view)> sink)
    : sink_(std::move(sink)) {}

void PosixStandardOutput::writeLine(std::string_view line) {
  if (sink_) {
    callHost(sink_, line);
    return;
  }
  // One call under the stream's lock, so that lines stay whole.
  std::string text(line);
  text += '\n';
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

}  // namespace veltrano

#include "platform/posix/device/standard_output.h"

#include <cstdio>
#include <string>
#include <utility>

#include "platform/posix/threads/fork.h"

namespace veltrano {

PosixStandardOutput::PosixStandardOutput(std::function<void(std::string_view)> sink)
    : sink_(std::move(sink)) {}

void PosixStandardOutput::writeLine(std::string_view line) {
  if (isForkedChild()) return;
  if (sink_) {
    try {
      sink_(line);
    } catch (...) {
      // The host's own affair.
    }
    return;
  }
  // One call under the stream's lock, so that lines stay whole.
  std::string text(line);
  text += '\n';
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

}  // namespace veltrano

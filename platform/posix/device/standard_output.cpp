#include "platform/posix/device/standard_output.h"

#include <signal.h>
#include <time.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "platform/host_callback.h"

namespace veltrano::internal {

void PosixStandardOutput::writeLine(std::string_view line) {
  if (sink_) {
    callHost(sink_, line);
    return;
  }
  std::string text(line);
  text += '\n';
  // Blocks SIGPIPE on this thread and consumes one raised meanwhile. Otherwise writing to a pipe
  // without a reader would end the host.
  sigset_t brokenPipe, pending, before;
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  sigpending(&pending);
  const bool isHosts = sigismember(&pending, SIGPIPE) != 0;  // which blocks it itself then
  const bool isOurs = !isHosts && pthread_sigmask(SIG_BLOCK, &brokenPipe, &before) == 0;
  const AtScopeEnd restore{[&] {
    if (!isOurs) return;
    const timespec now = {};
    while (sigtimedwait(&brokenPipe, nullptr, &now) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }};
  // One call, which locks the stream, so that lines stay whole.
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

}  // namespace veltrano::internal

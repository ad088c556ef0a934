#include "platform/posix/device/standard_output.h"

#include <signal.h>
#include <time.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "platform/host_callback.h"

namespace veltrano::internal {
namespace {

// Blocks SIGPIPE on this thread and consumes one raised meanwhile. Otherwise writing to a pipe
// without a reader would end the host.
class WithoutBrokenPipeSignal {
 public:
  WithoutBrokenPipeSignal() {
    sigset_t pending;
    sigpending(&pending);
    if (sigismember(&pending, SIGPIPE) != 0) return;  // the host's: blocked already and pending
    sigemptyset(&brokenPipe_);
    sigaddset(&brokenPipe_, SIGPIPE);
    isActive_ = pthread_sigmask(SIG_BLOCK, &brokenPipe_, &before_) == 0;
  }
  ~WithoutBrokenPipeSignal() {
    if (!isActive_) return;
    const timespec now = {};
    while (sigtimedwait(&brokenPipe_, nullptr, &now) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  WithoutBrokenPipeSignal(const WithoutBrokenPipeSignal&) = delete;
  WithoutBrokenPipeSignal& operator=(const WithoutBrokenPipeSignal&) = delete;

 private:
  bool isActive_ = false;
  sigset_t brokenPipe_;
  sigset_t before_;
};

}  // namespace

void PosixStandardOutput::writeLine(std::string_view line) {
  if (!HostCode::mayRunHere) return;  // the log has been enabled within an outcome
  if (sink_) {
    callHost(sink_, line);
    return;
  }
  std::string text(line);
  text += '\n';
  const WithoutBrokenPipeSignal guard;
  // One call, which locks the stream, so that lines stay whole.
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

}  // namespace veltrano::internal

#include <fcntl.h>
#include <linux/close_range.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>

#include "platform/posix/system/system.h"

// Not null under ThreadSanitizer. NOLINTNEXTLINE(readability-identifier-naming)
extern "C" void __tsan_init() __attribute__((weak));

namespace veltrano::internal {

void nameThisThread(const char* name) {
  char shortened[16];  // as much as the kernel keeps
  std::snprintf(shortened, sizeof shortened, "%s", name);
  pthread_setname_np(pthread_self(), shortened);
}

// Closes the host's descriptors in the new table, so that a pipe still ends when the host closes
// it. ThreadSanitizer identifies descriptors by number alone.
bool separateDescriptors(int kept) {
  if (__tsan_init != nullptr || kept <= STDERR_FILENO) return false;
  const auto number = static_cast<unsigned>(kept);
  if (close_range(number + 1, ~0U, CLOSE_RANGE_UNSHARE) != 0) return false;
  if (kept > STDERR_FILENO + 1) close_range(STDERR_FILENO + 1, number - 1, 0);
  const int nothing = open("/", O_PATH | O_CLOEXEC);
  if (nothing < 0) return true;
  dup2(nothing, STDIN_FILENO);
  dup2(nothing, STDOUT_FILENO);
  if (nothing > STDERR_FILENO) close(nothing);
  return true;
}

int openSocket(int family, int type, int protocol) {
  return socket(family, type | SOCK_CLOEXEC, protocol);
}

}  // namespace veltrano::internal

#include <fcntl.h>
#include <sys/socket.h>

#include "platform/posix/system/system.h"

namespace veltrano::internal {

void nameThisThread(const char* /*name*/) {}

bool separateDescriptors(int /*kept*/) {
  return false;
}

// A program that is executed between the two calls inherits the descriptor.
int openSocket(int family, int type, int protocol) {
  const int opened = socket(family, type, protocol);
  if (opened >= 0) fcntl(opened, F_SETFD, FD_CLOEXEC);
  return opened;
}

}  // namespace veltrano::internal

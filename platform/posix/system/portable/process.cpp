#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>

#include <system_error>

#include "platform/posix/system/system.h"

namespace veltrano::internal {

void nameThisThread(const char* /*name*/) {}

std::filesystem::path ownObject() {
  static const char symbol = 0;
  Dl_info own = {};
  if (dladdr(&symbol, &own) == 0 || own.dli_fname == nullptr) return {};
  std::error_code error;
  return std::filesystem::canonical(own.dli_fname, error);
}

void separateDescriptors() {}

// A program that is executed between the two calls inherits the descriptor.
int openSocket(int family, int type, int protocol) {
  const int opened = socket(family, type, protocol);
  if (opened >= 0) fcntl(opened, F_SETFD, FD_CLOEXEC);
  return opened;
}

}  // namespace veltrano::internal

#include "platform/posix/device/device.h"

#include <sys/utsname.h>

#include <utility>

#include "platform/posix/threads/fork.h"

namespace veltrano {
PosixDevice::PosixDevice(std::optional<std::string> systemName,
                         std::optional<std::string> systemVersion) {
  utsname names = {};
  uname(&names);
  systemName_ = systemName ? std::move(*systemName) : names.sysname;
  systemVersion_ = systemVersion ? std::move(*systemVersion) : names.release;
  machine_ = names.machine;
}

void PosixDevice::setMainScreenSize(ScreenSize size) {
  if (isForkedChild()) return;
  const std::lock_guard lock(mutex_);
  screenSize_ = size;
}

ScreenSize PosixDevice::mainScreenSize() const {
  if (isForkedChild()) return {};
  const std::lock_guard lock(mutex_);
  return screenSize_;
}

}  // namespace veltrano

#include "platform/posix/device/device.h"

#include <sys/utsname.h>

#include <utility>

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
  const std::lock_guard lock(mutex_);
  screenSize_ = size;
}

ScreenSize PosixDevice::mainScreenSize() const {
  const std::lock_guard lock(mutex_);
  return screenSize_;
}

}  // namespace veltrano

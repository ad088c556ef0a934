#include "platform/posix/device.h"

#include <sys/utsname.h>

#include <bit>
#include <utility>

namespace veltrano {
namespace {

std::uint64_t bits(double side) {
  return std::bit_cast<std::uint32_t>(static_cast<float>(side));
}

double side(std::uint64_t bits) {
  return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
}

}  // namespace

PosixDevice::PosixDevice(std::optional<std::string> systemName,
                         std::optional<std::string> systemVersion) {
  utsname names = {};
  uname(&names);
  systemName_ = systemName ? std::move(*systemName) : names.sysname;
  systemVersion_ = systemVersion ? std::move(*systemVersion) : names.release;
  machine_ = names.machine;
}

void PosixDevice::setMainScreenSize(ScreenSize size) {
  screenSize_ = bits(size.width) << 32 | bits(size.height);
}

ScreenSize PosixDevice::mainScreenSize() const {
  const std::uint64_t both = screenSize_;
  return {side(both >> 32), side(both)};
}

}  // namespace veltrano

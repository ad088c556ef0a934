#include "platform/posix/device/host_reports.h"

#include <sys/utsname.h>

#include <utility>

#include "encoding/uuid.h"

namespace veltrano::internal {

PosixDevice::PosixDevice(std::optional<std::string> systemName,
                         std::optional<std::string> systemVersion) {
  utsname names = {};
  uname(&names);
  systemName_ = systemName ? std::move(*systemName) : names.sysname;
  systemVersion_ = systemVersion ? std::move(*systemVersion) : names.release;
  machine_ = names.machine;
}

void PosixDevice::setMainScreenSize(ScreenSize size) {
  const Lock lock(mutex_);
  screenSize_ = size;
}

ScreenSize PosixDevice::mainScreenSize() const {
  const Lock lock(mutex_);
  return screenSize_;
}

void ReportedText::set(std::optional<std::string> text) {
  const Lock lock(mutex_);
  text_.swap(text);
}

std::optional<std::string> ReportedText::get() const {
  const Lock lock(mutex_);
  return text_;
}

void PosixIdentifiers::setAdvertisingIdentifier(std::optional<std::string> identifier) {
  identifier_.set(identifier ? canonicalUUID(*identifier) : std::nullopt);
}

std::string PosixIdentifiers::advertisingIdentifier() const {
  return identifier_.get().value_or(ASIdentifierManager::advertisingIdentifier());
}

}  // namespace veltrano::internal

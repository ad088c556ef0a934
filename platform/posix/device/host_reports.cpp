#include "platform/posix/device/host_reports.h"

#include <sys/utsname.h>

#include <utility>

#include "encoding/uuid.h"

namespace veltrano::internal {

HostReports::HostReports(const PosixOptions& options, MomentaryFacts& facts)
    : facts_(facts),
      state_(static_cast<ApplicationState>(options.applicationState)),
      interfaceOrientation_(options.interfaceOrientation),
      deviceOrientation_(options.deviceOrientation),
      screenSize_{options.screenWidth, options.screenHeight} {
  utsname names = {};
  uname(&names);
  systemName_ = options.systemName.value_or(names.sysname);
  systemVersion_ = options.systemVersion.value_or(names.release);
  machine_ = names.machine;
  setCarrierName(options.carrierName);
  setTrackingAuthorizationStatus(options.trackingAuthorizationStatus);
  setAdvertisingIdentifier(options.advertisingIdentifier);
}

void HostReports::setScreenSize(ScreenSize size) {
  const Lock lock(mutex_);
  screenSize_ = size;
}

void HostReports::setCarrierName(std::optional<std::string> name) {
  const Lock lock(mutex_);
  carrierName_ = std::move(name);
  facts_.hasCarrierName = carrierName_.has_value();
}

void HostReports::setAdvertisingIdentifier(const std::optional<std::string>& identifier) {
  auto canonical = identifier ? canonicalUUID(*identifier) : std::nullopt;
  const Lock lock(mutex_);
  identifier_ = std::move(canonical);
}

ScreenSize HostReports::mainScreenSize() const {
  const Lock lock(mutex_);
  return screenSize_;
}

std::optional<std::string> HostReports::carrierName() const {
  const Lock lock(mutex_);
  return carrierName_;
}

std::string HostReports::advertisingIdentifier() const {
  const Lock lock(mutex_);
  return identifier_.value_or(ASIdentifierManager::advertisingIdentifier());
}

}  // namespace veltrano::internal

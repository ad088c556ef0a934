#include "platform/posix/device/host_reports.h"

#include <sys/utsname.h>

#include <new>
#include <utility>

#include "encoding/uuid.h"
#include "platform/posix/system/system.h"

namespace veltrano::internal {

HostReports::HostReports(const PosixOptions& options, MomentaryFacts& facts) : facts_(facts) {
  utsname names = {};
  uname(&names);
  screen = {options.screenWidth, options.screenHeight};
  name = options.systemName.value_or(names.sysname);
  version = options.systemVersion.value_or(names.release);
  machineName = names.machine;
  deviceOrientation = options.deviceOrientation;
  screenOrientation = options.interfaceOrientation;
  applicationState = static_cast<ApplicationState>(options.applicationState);
  setCarrierName(options.carrierName);
  setTrackingAuthorizationStatus(options.trackingAuthorizationStatus);
  setAdvertisingIdentifier(options.advertisingIdentifier);
  lookForWiFi();
}

void HostReports::setCarrierName(std::optional<std::string> name) {
  change([&](DeviceFacts& facts) {
    facts_.hasCarrierName = name.has_value();
    facts.carrier = std::move(name);
  });
}

void HostReports::setTrackingAuthorizationStatus(std::uint64_t status) {
  facts_.trackingAuthorizationStatus = status;
  set(&DeviceFacts::trackingStatus, status);
}

void HostReports::setAdvertisingIdentifier(const std::optional<std::string>& identifier) {
  auto canonical = canonicalUUID(identifier.value_or(""));
  set(&DeviceFacts::identifier,
      canonical ? *std::move(canonical) : ASIdentifierManager().advertisingIdentifier());
}

void HostReports::lookForWiFi() noexcept {
  try {
    facts_.isReachableOnWiFi = internal::isOnWiFi();
    set(&DeviceFacts::isOnWiFi, facts_.isReachableOnWiFi.load());
  } catch (const std::bad_alloc&) {
    // Until the next change.
  }
}

}  // namespace veltrano::internal

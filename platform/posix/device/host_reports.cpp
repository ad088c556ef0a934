#include "platform/posix/device/host_reports.h"

#include <sys/utsname.h>

#include <new>

#include "platform/posix/system/system.h"

namespace veltrano::internal {

HostReports::HostReports(const PosixOptions& options, MomentaryFacts& facts) : momentary_(facts) {
  utsname names = {};
  uname(&names);
  report([&](DeviceFacts& own) {
    own.screen = {options.screenWidth, options.screenHeight};
    own.name = options.systemName.value_or(names.sysname);
    own.version = options.systemVersion.value_or(names.release);
    own.machineName = names.machine;
    own.deviceOrientation = options.deviceOrientation;
    own.screenOrientation = options.interfaceOrientation;
    own.applicationState = static_cast<ApplicationState>(options.applicationState);
    own.carrier = options.carrierName;
    own.trackingStatus = options.trackingAuthorizationStatus;
    own.identify(options.advertisingIdentifier);
  });
  lookForWiFi();
}

void HostReports::report(const DeviceChange& reported) {
  change([&](DeviceFacts& own) {
    reported(own);
    momentary_.isReachableOnWiFi = own.isOnWiFi;
    momentary_.hasCarrierName = own.carrier.has_value();
    momentary_.trackingAuthorizationStatus = own.trackingStatus;
  });
}

void HostReports::lookForWiFi() noexcept {
  try {
    const bool isOn = internal::isOnWiFi();
    report([isOn](DeviceFacts& own) { own.isOnWiFi = isOn; });
  } catch (const std::bad_alloc&) {
    // Until the next change.
  }
}

}  // namespace veltrano::internal

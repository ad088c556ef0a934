#include "platform/posix/posix_services.h"

#include <utility>

namespace veltrano::internal {
namespace {

ApplicationState internalState(PosixOptions::ApplicationState state) {
  switch (state) {
    case PosixOptions::ApplicationState::inactive:
      return ApplicationState::inactive;
    case PosixOptions::ApplicationState::background:
      return ApplicationState::background;
    default:
      return ApplicationState::active;
  }
}

}  // namespace

std::optional<HostMap> infoDictionary(PosixOptions& options) {
  if (options.infoDictionary) return std::move(options.infoDictionary);
  if (options.infoPropertyListFile.empty()) return std::nullopt;
  return readInfoDictionary(options.infoPropertyListFile);
}

PosixServices::PosixServices(PosixOptions options)
    : collectionHost(std::move(options.collectionHost)),
      standardOutput(std::move(options.logSink)),
      userDefaults(std::move(options.userDefaultsFile)),
      bundles(infoDictionary(options)),
      application(internalState(options.applicationState), options.interfaceOrientation),
      device(std::move(options.systemName), std::move(options.systemVersion)),
      urlSession({.certificateAuthorities = std::move(options.certificateAuthorities),
                  .pinnedPublicKey = std::move(options.pinnedPublicKey),
                  .proxy = std::move(options.proxy),
                  .proxyFromEnvironment = options.proxyFromEnvironment}),
      tokenRepository(std::move(options.sessionToken)) {
  device.setMainScreenSize({options.screenWidth, options.screenHeight});
  device.setOrientation(options.deviceOrientation);
  telephony.setCarrierName(std::move(options.carrierName));
  tracking.setTrackingAuthorizationStatus(options.trackingAuthorizationStatus);
  identifiers.setAdvertisingIdentifier(std::move(options.advertisingIdentifier));
}

Platform PosixServices::platform() {
  return {
      .collectionHost = collectionHost,
      .wallClock = &clock,
      .standardOutput = &standardOutput,
      .workQueue = &workQueue,
      .timers = &timers,
      .notificationCenter = &notificationCenter,
      .userDefaults = &userDefaults,
      .randomSource = &randomSource,
      .bundles = &bundles,
      .application = &application,
      .device = &device,
      .telephony = &telephony,
      .trackingManager = &tracking,
      .identifierManager = &identifiers,
      .connectivity = &connectivity,
      .urlSession = &urlSession,
      .sessionTokenProvider = &tokenRepository,
      .userSessionManager = &auth,
  };
}

}  // namespace veltrano::internal

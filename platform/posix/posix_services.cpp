#include "platform/posix/posix_services.h"

#include <utility>

namespace veltrano::internal {

static_assert(static_cast<int>(PosixOptions::ApplicationState::inactive) ==
              static_cast<int>(ApplicationState::inactive));
static_assert(static_cast<int>(PosixOptions::ApplicationState::background) ==
              static_cast<int>(ApplicationState::background));

PosixServices::PosixServices(PosixOptions options)
    : collectionHost(std::move(options.collectionHost)),
      withheldProperties(std::move(options.withheldProperties)),
      standardOutput(std::move(options.logSink)),
      userDefaults(std::move(options.userDefaultsFile)),
      bundles(std::move(options.infoDictionary)),
      reports(options, momentaryFacts),
      urlSession({.wallClock = &clock,
                  .certificateAuthorities = std::move(options.certificateAuthorities),
                  .pinnedPublicKey = std::move(options.pinnedPublicKey),
                  .proxy = std::move(options.proxy),
                  .proxyFromEnvironment = options.proxyFromEnvironment,
                  .onTransfer = std::move(options.onTransfer),
                  .interceptorsMayBlock = bool(options.sessionToken),
                  .onNetworkChange = [this] { reports.lookForWiFi(); }}),
      tokenRepository(std::move(options.sessionToken)) {}

Platform PosixServices::platform() {
  return {
      .collectionHost = collectionHost,
      .withheldProperties = withheldProperties,
      .wallClock = &clock,
      .standardOutput = &standardOutput,
      .workQueue = &workQueue,
      .callAtThreadEnd = callAtThreadEnd,
      .timers = &timers,
      .notificationCenter = &notificationCenter,
      .userDefaults = &userDefaults,
      .randomSource = &randomSource,
      .bundles = &bundles,
      .application = &reports,
      .device = &reports,
      .telephony = &reports,
      .trackingManager = &reports,
      .identifierManager = &reports,
      .momentaryFacts = &momentaryFacts,
      .connectivity = &reports,
      .urlSession = &urlSession,
      .sessionTokenProvider = &tokenRepository,
      .userSessionManager = &auth,
  };
}

}  // namespace veltrano::internal

#include "veltrano/posix_platform.h"

#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/platform.h"
#include "platform/posix/device/application.h"
#include "platform/posix/device/clock.h"
#include "platform/posix/device/connectivity.h"
#include "platform/posix/device/device.h"
#include "platform/posix/device/random_source.h"
#include "platform/posix/device/standard_output.h"
#include "platform/posix/device/telephony.h"
#include "platform/posix/device/tracking.h"
#include "platform/posix/http/authentication.h"
#include "platform/posix/http/option_checks.h"
#include "platform/posix/http/url_session.h"
#include "platform/posix/storage/bundles.h"
#include "platform/posix/storage/user_defaults.h"
#include "platform/posix/threads/fork.h"
#include "platform/posix/threads/notification_center.h"
#include "platform/posix/threads/run_loop.h"
#include "platform/posix/threads/work_queue.h"

namespace veltrano {
namespace {

constexpr std::string_view kApplicationWillResignActive =
    "UIApplicationWillResignActiveNotification";

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

std::optional<HostMap> infoDictionary(PosixOptions& options) {
  if (options.infoDictionary) return std::move(options.infoDictionary);
  if (options.infoPropertyListFile.empty()) return std::nullopt;
  return readInfoDictionary(options.infoPropertyListFile);
}

}  // namespace

struct PosixPlatform::Services {
  explicit Services(PosixOptions& options)
      : standardOutput(std::move(options.logSink)),
        userDefaults(std::move(options.userDefaultsFile)),
        bundles(infoDictionary(options)),
        application(internalState(options.applicationState), options.interfaceOrientation),
        device(std::move(options.systemName), std::move(options.systemVersion)),
        urlSession({.certificateAuthorities = std::move(options.certificateAuthorities),
                    .pinnedPublicKey = std::move(options.pinnedPublicKey),
                    .proxy = std::move(options.proxy),
                    .proxyFromEnvironment = options.proxyFromEnvironment}),
        tokenRepository(std::move(options.sessionToken)),
        collectionHost(std::move(options.collectionHost)) {
    device.setMainScreenSize({options.screenWidth, options.screenHeight});
    device.setOrientation(options.deviceOrientation);
    telephony.setCarrierName(std::move(options.carrierName));
    tracking.setTrackingAuthorizationStatus(options.trackingAuthorizationStatus);
    identifiers.setAdvertisingIdentifier(std::move(options.advertisingIdentifier));
  }

  Platform asPlatform() {
    return {
        .collectionHost = collectionHost,
        .wallClock = clock,
        .standardOutput = standardOutput,
        .dispatch = dispatch,
        .timers = timers,
        .notificationCenter = notificationCenter,
        .userDefaults = userDefaults,
        .randomSource = randomSource,
        .bundles = bundles,
        .application = application,
        .device = device,
        .telephony = telephony,
        .trackingManager = tracking,
        .identifierManager = identifiers,
        .connectivity = connectivity,
        .urlSession = urlSession,
        .sessionTokenProvider = tokenRepository,
        .userSessionManager = auth,
    };
  }

  // Posts `name` on the main thread once `change` has been made there.
  template <class Change>
  void announce(std::string_view name, Change change) {
    if (isForkedChild()) return;
    auto announcement = [this, name, change] {
      change();
      notificationCenter.post(name);
    };
    {
      const std::lock_guard lock(announcementsMutex);
      announcements.push_back(std::move(announcement));
    }
    if (mainRunLoop->isOwnThread()) {
      makeAnnouncements();
    } else {
      mainRunLoop->perform([this] { makeAnnouncements(); });
    }
  }

  // On the main thread. Those from other threads come first if they were first.
  void makeAnnouncements() {
    for (;;) {
      std::function<void()> next;
      {
        const std::lock_guard lock(announcementsMutex);
        if (announcements.empty()) return;
        next = std::move(announcements.front());
        announcements.pop_front();
      }
      next();
    }
  }

  void enter(ApplicationState state, std::string_view name) {
    announce(name, [this, state] { application.setState(state); });
  }

  PosixClock clock;
  PosixStandardOutput standardOutput;
  PosixDispatch dispatch;
  PosixTimers timers;
  PosixNotificationCenter notificationCenter;
  PosixUserDefaults userDefaults;
  PosixRandomSource randomSource;
  PosixBundles bundles;
  PosixApplication application;
  PosixDevice device;
  PosixTelephony telephony;
  PosixTracking tracking;
  PosixIdentifiers identifiers;
  PosixConnectivity connectivity;
  PosixURLSession urlSession;
  ZKAuthTokenRepository tokenRepository;
  ZKAuth auth;
  const std::string collectionHost;
  const std::shared_ptr<PosixRunLoop> mainRunLoop = PosixRunLoop::ofThisThread();

  std::mutex announcementsMutex;
  std::deque<std::function<void()>> announcements;  // guarded by announcementsMutex
};

PosixPlatform::PosixPlatform(Services& services) : services_(services) {}

Installation PosixPlatform::install(PosixOptions options) {
  static auto& mutex = *new std::mutex;
  static PosixPlatform* installed = nullptr;  // guarded by mutex

  if (isForkedChild()) return {nullptr, "A forked child keeps its parent's platform."};
  try {
    const std::lock_guard lock(mutex);
    if (installed != nullptr) return {nullptr, "A platform has been installed already."};
    if (!isCollectionHost(options.collectionHost)) {
      return {nullptr, "The collection host has to be \"host\" or \"host:port\", not \"" +
                           options.collectionHost + "\"."};
    }
    for (const auto* name : {&options.userDefaultsFile, &options.infoPropertyListFile,
                             &options.certificateAuthorities})
      if (name->find('\0') != std::string::npos)
        return {nullptr, "The name of a file must not hold a NUL character."};
    if (!options.pinnedPublicKey.empty() && !isPublicKeyPin(options.pinnedPublicKey))
      return {nullptr,
              "The pinned public key has to be \"sha256//\" and a SHA-256 digest in Base64."};
    if (!options.proxy.empty() && !isProxy(options.proxy))
      return {nullptr, "The proxy has to be \"http://host:port\"."};
    if (options.advertisingIdentifier && !canonicalUUID(*options.advertisingIdentifier))
      return {nullptr, "The advertising identifier is not a UUID."};

    watchForks();
    auto services = std::make_unique<Services>(options);
    if (!installPlatform(services->asPlatform()))
      return {nullptr, "The library is in use already; install the platform before its first use."};
    Services& kept = *services.release();  // the library has them now
    installed = new PosixPlatform(kept);
    kept.connectivity.startWatching();
    return {installed, {}};
  } catch (const std::exception& exception) {
    return {nullptr, std::string("The platform could not be set up: ") + exception.what() + "."};
  }
}

RunLoop& PosixPlatform::mainRunLoop() {
  return *services_.mainRunLoop;
}

void PosixPlatform::applicationDidBecomeActive() {
  services_.enter(ApplicationState::active, kApplicationDidBecomeActive);
}

void PosixPlatform::applicationWillResignActive() {
  services_.enter(ApplicationState::inactive, kApplicationWillResignActive);
}

void PosixPlatform::applicationDidEnterBackground() {
  services_.enter(ApplicationState::background, kApplicationDidEnterBackground);
}

void PosixPlatform::applicationWillEnterForeground() {
  services_.enter(ApplicationState::inactive, kApplicationWillEnterForeground);
}

void PosixPlatform::setInterfaceOrientation(int orientation) {
  services_.announce(kApplicationDidChangeStatusBarOrientation, [this, orientation] {
    services_.application.setInterfaceOrientation(orientation);
  });
}

void PosixPlatform::setDeviceOrientation(int orientation) {
  services_.announce(kDeviceOrientationDidChange,
                     [this, orientation] { services_.device.setOrientation(orientation); });
}

void PosixPlatform::setScreenSize(double width, double height) {
  services_.device.setMainScreenSize({width, height});
}

void PosixPlatform::setCarrierName(std::optional<std::string> name) {
  services_.telephony.setCarrierName(std::move(name));
}

void PosixPlatform::setTrackingAuthorizationStatus(std::uint64_t status) {
  services_.tracking.setTrackingAuthorizationStatus(status);
}

void PosixPlatform::setAdvertisingIdentifier(std::optional<std::string> identifier) {
  services_.identifiers.setAdvertisingIdentifier(std::move(identifier));
}

}  // namespace veltrano

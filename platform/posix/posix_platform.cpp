#include "veltrano/posix_platform.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "encoding/uuid.h"
#include "platform/posix/http/exit_gate.h"
#include "platform/posix/http/option_checks.h"
#include "platform/posix/posix_services.h"
#include "platform/posix/storage/files.h"
#include "platform/posix/threads/background_thread.h"
#include "platform/posix/threads/fork.h"
#include "tracker/library.h"

namespace veltrano {

using namespace internal;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kApplicationWillResignActive =
    "UIApplicationWillResignActiveNotification";

// How long a callback that is under way at the deadline of a shutdown is waited for.
constexpr std::chrono::milliseconds kGrace{250};

// A library without a platform, for where the process's own cannot work any more.
Library& inertLibrary() {
  static Library& inert = *new Library(Platform());
  return inert;
}

// From now on a forked child finds the inert library in the place of its parent's, whose threads do
// not exist there and whose locks may be held for good.
void makeForkedChildrenInert() {
  inertLibrary();
  static const int registered =
      pthread_atfork(nullptr, nullptr, [] { Library::exchangeCurrent(&inertLibrary()); });
  static_cast<void>(registered);  // fails for want of memory only
}

bool holdsCertificate(const std::string& pemFile) {
  const auto contents = readFile(pemFile).contents;
  return contents && contents->find("CERTIFICATE-----") != std::string::npos;
}

// Makes paths absolute and reads the Info dictionary. Says why the options cannot work; empty if
// they can.
std::string complete(PosixOptions& options) {
  const auto quoted = [](const std::string& text) { return " \"" + text + "\""; };
  if (!isCollectionHost(options.collectionHost))
    return "The collection host has to be \"host\" or \"host:port\", not" +
           quoted(options.collectionHost) + ".";
  for (auto* name : {&options.userDefaultsFile, &options.infoPropertyListFile,
                     &options.certificateAuthorities}) {
    if (name->find('\0') != std::string::npos)
      return "The name of a file must not hold a NUL character.";
    // The host may change its working directory later.
    if (!name->empty()) *name = std::filesystem::absolute(*name).string();
  }
  const auto directory = std::filesystem::path(options.userDefaultsFile).parent_path();
  if (!directory.empty() && !std::filesystem::is_directory(directory))
    return "The settings' directory" + quoted(directory) + " does not exist.";
  if (!options.infoDictionary && !options.infoPropertyListFile.empty()) {
    options.infoDictionary = readInfoDictionary(options.infoPropertyListFile);
    if (!options.infoDictionary)
      return "The Info property list" + quoted(options.infoPropertyListFile) + " cannot be read.";
  }
  if (!options.certificateAuthorities.empty() && !holdsCertificate(options.certificateAuthorities))
    return "The file" + quoted(options.certificateAuthorities) +
           " cannot be read or holds no certificate in PEM form.";
  if (!options.pinnedPublicKey.empty() && !isPublicKeyPin(options.pinnedPublicKey))
    return "The pinned public key has to be \"sha256//\" and a SHA-256 digest in Base64.";
  if (!options.proxy.empty() && !isProxy(options.proxy))
    return "The proxy has to be \"http://host:port\".";
  if (options.advertisingIdentifier && !canonicalUUID(*options.advertisingIdentifier))
    return "The advertising identifier is not a UUID.";
  if (options.interfaceOrientation < 0 || options.interfaceOrientation > 4)
    return "The interface orientation has to be from 0 to 4.";
  if (options.deviceOrientation < 0 || options.deviceOrientation > 6)
    return "The device orientation has to be from 0 to 6.";
  return {};
}

// From now on no callback starts. False if one still runs at `deadline`.
bool stopCallingHost(Clock::time_point deadline) {
  isHostGone = true;
  while (HostCall::count() > 0 && Clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return HostCall::count() == 0;
}

}  // namespace

struct PosixPlatform::Services : PosixServices {
  using PosixServices::PosixServices;

  PosixPlatform platformOfHost{*this};

  // Posts `name` on the main thread once `change` has been made there.
  template <class Change>
  void announce(std::string_view name, Change change) {
    if (isForkedChild()) return;
    dropExceptions([&] {
      auto announcement = [this, name, change] {
        if (isShutDown) return;
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
    });
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
      if (isForkedChild()) return;  // made by a callback
    }
  }

  void enter(ApplicationState state, std::string_view name) {
    announce(name, [this, state] { application.setState(state); });
  }

  bool shutDown(Clock::time_point deadline) {
    {
      std::unique_lock lock(endMutex);
      if (isShutDown.exchange(true)) {
        ended.wait(lock, [this] { return hasEnded; });
        return wasComplete;
      }
    }
    struct End {
      ~End() {
        const std::lock_guard lock(services.endMutex);
        services.hasEnded = true;
        services.ended.notify_all();
      }
      Services& services;
    };
    const End end{*this};
    bool isFlushed = false;
    if (!ExitGate::isClosed()) dropExceptions([&] { isFlushed = flushUntil(deadline); });
    return wasComplete = stop(deadline) && isFlushed;
  }

  // What happens to an application that is closed. False when the deadline comes first.
  bool flushUntil(Clock::time_point deadline) {
    application.setState(ApplicationState::background);
    notificationCenter.post(kApplicationDidEnterBackground);
    const auto isFlushed = std::make_shared<std::promise<void>>();
    workQueue.async([isFlushed] { isFlushed->set_value(); });  // behind the final flush
    return isFlushed->get_future().wait_until(deadline) == std::future_status::ready;
  }

  // True when nothing was left.
  bool stop(Clock::time_point deadline) {
    Library& library = *Library::exchangeCurrent(&inertLibrary());
    timers.stop();
    workQueue.stop();
    // When the process exits, the network's threads stand still already.
    bool isComplete = ExitGate::isClosed() || urlSession.shutDown(deadline);
    isComplete &= workQueue.waitForEnd(Clock::now() + kGrace);
    isComplete &= stopCallingHost(Clock::now() + kGrace);
    library.releaseCallbacks();
    const Statistics last = library.accounting().statistics();
    inertLibrary().accounting().goOnFrom(last);
    return isComplete && last.waiting + last.inFlight == 0;
  }

  const std::shared_ptr<PosixRunLoop> mainRunLoop = PosixRunLoop::ofThisThread();

  std::mutex announcementsMutex;
  std::deque<std::function<void()>> announcements;  // guarded by announcementsMutex

  std::atomic<bool> isShutDown{false};
  std::mutex endMutex;
  std::condition_variable ended;
  bool hasEnded = false;     // guarded by endMutex
  bool wasComplete = false;  // written once, before hasEnded is set
};

PosixPlatform::PosixPlatform(Services& services) : services_(services) {}

Installation PosixPlatform::install(PosixOptions options) {
  try {
    return installOrThrow(options);
  } catch (const std::exception&) {
    return {nullptr, "Out of memory."};  // a text that needs none
  }
}

Installation PosixPlatform::installOrThrow(PosixOptions& options) {
  static auto& mutex = *new std::mutex;
  static PosixPlatform* installed = nullptr;  // guarded by mutex

  if (isForkedChild()) return {nullptr, "A forked child keeps its parent's platform."};
  try {
    const std::lock_guard lock(mutex);
    if (installed != nullptr) return {nullptr, "A platform has been installed already."};
    if (std::string reason = complete(options); !reason.empty())
      return {nullptr, std::move(reason)};

    watchForks();
    makeForkedChildrenInert();
    auto services = std::make_unique<Services>(std::move(options));
    if (!Library::install(services->platform()))
      return {nullptr, "The library is in use already; install the platform before its first use."};
    Services& kept = *services.release();  // the library has them now
    installed = &kept.platformOfHost;
    dropExceptions([&] { kept.connectivity.startWatching(); });
    return {installed, {}};
  } catch (const std::system_error& exception) {
    return {nullptr, std::string("The platform could not be set up: ") + exception.what() + "."};
  }
}

bool PosixPlatform::shutDown(std::chrono::steady_clock::time_point deadline) {
  if (isForkedChild() || isBackgroundThread() || HostCall::isOnThisThread()) return false;
  bool wasComplete = false;
  dropExceptions([&] { wasComplete = services_.shutDown(deadline); });
  return wasComplete;
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
  if (isForkedChild()) return;
  services_.device.setMainScreenSize({width, height});
}

void PosixPlatform::setCarrierName(std::optional<std::string> name) {
  if (isForkedChild()) return;
  services_.telephony.setCarrierName(std::move(name));
}

void PosixPlatform::setTrackingAuthorizationStatus(std::uint64_t status) {
  services_.tracking.setTrackingAuthorizationStatus(status);
}

void PosixPlatform::setAdvertisingIdentifier(std::optional<std::string> identifier) {
  if (isForkedChild()) return;
  dropExceptions([&] { services_.identifiers.setAdvertisingIdentifier(std::move(identifier)); });
}

}  // namespace veltrano

#include "veltrano/posix_platform.h"

#include <pthread.h>

#include <atomic>
#include <deque>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <system_error>
#include <utility>

#include "encoding/uuid.h"
#include "platform/posix/http/option_checks.h"
#include "platform/posix/platform_backend.h"
#include "platform/posix/posix_services.h"
#include "platform/posix/threads/fork.h"
#include "tracker/library.h"

namespace veltrano {

using namespace internal;

namespace {

// Set once, under the lock of the installation.
constinit std::atomic<PosixPlatform*> systemPlatform{nullptr};

constinit std::atomic<TestBackend*> testBackend{nullptr};
constinit std::atomic<PosixPlatform*> testPlatform{nullptr};

// From now on a forked child finds a library without a platform in the place of its parent's, whose
// threads do not exist there and whose locks may be held for good.
void makeForkedChildrenInert() {
  static Library& inert = *new Library(Platform());
  static const int registered =
      pthread_atfork(nullptr, nullptr, [] { Library::exchangeCurrent(&inert); });
  static_cast<void>(registered);  // fails for want of memory only
}

// What is wrong with the options; empty when nothing is. Makes the names of files absolute.
std::string checkOptions(PosixOptions& options) {
  if (!isCollectionHost(options.collectionHost))
    return "The collection host has to be \"host\" or \"host:port\", not \"" +
           options.collectionHost + "\".";
  for (auto* name : {&options.userDefaultsFile, &options.infoPropertyListFile,
                     &options.certificateAuthorities}) {
    if (name->find('\0') != std::string::npos)
      return "The name of a file must not hold a NUL character.";
    // The host may change its working directory later.
    if (!name->empty()) *name = std::filesystem::absolute(*name).string();
  }
  if (!options.pinnedPublicKey.empty() && !isPublicKeyPin(options.pinnedPublicKey))
    return "The pinned public key has to be \"sha256//\" and a SHA-256 digest in Base64.";
  if (!options.proxy.empty() && !isProxy(options.proxy))
    return "The proxy has to be \"http://host:port\".";
  if (options.advertisingIdentifier && !canonicalUUID(*options.advertisingIdentifier))
    return "The advertising identifier is not a UUID.";
  return {};
}

// The system as the backend of the process's platform.
class SystemBackend final : public PlatformBackend, public PosixServices {
 public:
  using PosixServices::PosixServices;

  RunLoop& mainRunLoop() override { return *mainRunLoop_; }

  void enter(ApplicationState state, std::string_view notification) override {
    announce(notification, [this, state] { application.setState(state); });
  }

  void setInterfaceOrientation(int orientation) override {
    announce(kApplicationDidChangeStatusBarOrientation,
             [this, orientation] { application.setInterfaceOrientation(orientation); });
  }

  void setDeviceOrientation(int orientation) override {
    announce(kDeviceOrientationDidChange,
             [this, orientation] { device.setOrientation(orientation); });
  }

  void setScreenSize(ScreenSize size) override {
    if (!isForkedChild()) device.setMainScreenSize(size);
  }

  void setCarrierName(std::optional<std::string> name) override {
    if (!isForkedChild()) telephony.setCarrierName(std::move(name));
  }

  void setTrackingAuthorizationStatus(std::uint64_t status) override {
    tracking.setTrackingAuthorizationStatus(status);
  }

  void setAdvertisingIdentifier(std::optional<std::string> identifier) override {
    if (isForkedChild()) return;
    dropExceptions([&] { identifiers.setAdvertisingIdentifier(std::move(identifier)); });
  }

 private:
  // Posts `name` on the main thread once `change` has been made there.
  void announce(std::string_view name, std::function<void()> change) {
    if (isForkedChild()) return;
    dropExceptions([&] {
      auto announcement = [this, name, change = std::move(change)] {
        change();
        notificationCenter.post(name);
      };
      {
        const std::lock_guard lock(announcementsMutex_);
        announcements_.push_back(std::move(announcement));
      }
      if (mainRunLoop_->isOwnThread()) {
        makeAnnouncements();
      } else {
        mainRunLoop_->perform([this] { makeAnnouncements(); });
      }
    });
  }

  // On the main thread. Those from other threads come first if they were first.
  void makeAnnouncements() {
    for (;;) {
      std::function<void()> next;
      {
        const std::lock_guard lock(announcementsMutex_);
        if (announcements_.empty()) return;
        next = std::move(announcements_.front());
        announcements_.pop_front();
      }
      next();
      if (isForkedChild()) return;  // made by a callback
    }
  }

  const std::shared_ptr<PosixRunLoop> mainRunLoop_ = PosixRunLoop::ofThisThread();

  std::mutex announcementsMutex_;
  std::deque<std::function<void()>> announcements_;  // guarded by announcementsMutex_
};

}  // namespace

void internal::setTestBackend(TestBackend* backend) noexcept {
  testPlatform = nullptr;
  testBackend = backend;
}

PosixPlatform* internal::installedPlatform() noexcept {
  return testBackend != nullptr ? testPlatform : systemPlatform;
}

struct PosixPlatform::Services {
  // Null: the test's that is in place.
  explicit Services(PlatformBackend* backend) : backend_(backend) {}

  template <class Report>
  void pass(Report report) {
    PlatformBackend* const backend = backend_ != nullptr ? backend_ : testBackend.load();
    if (backend != nullptr) report(*backend);
  }

  PosixPlatform platform{*this};

 private:
  PlatformBackend* const backend_;
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

  if (isForkedChild()) return {nullptr, "A forked child keeps its parent's platform."};
  try {
    if (TestBackend* const test = testBackend) {
      std::string error = checkOptions(options);
      if (error.empty()) {
        options.infoDictionary = infoDictionary(options);
        error = test->install(std::move(options));
      }
      if (!error.empty()) return {nullptr, std::move(error)};
      // One for all tests, as a host may keep it from one to the next.
      static Services& services = *new Services(nullptr);
      testPlatform = &services.platform;
      return {testPlatform, {}};
    }
    const std::lock_guard lock(mutex);
    if (systemPlatform != nullptr) return {nullptr, "A platform has been installed already."};
    if (std::string error = checkOptions(options); !error.empty())
      return {nullptr, std::move(error)};

    watchForks();
    makeForkedChildrenInert();
    auto backend = std::make_unique<SystemBackend>(std::move(options));
    auto services = std::make_unique<Services>(backend.get());
    if (!Library::install(backend->platform()))
      return {nullptr, "The library is in use already; install the platform before its first use."};
    SystemBackend& kept = *backend.release();  // the library has it now
    systemPlatform = &services.release()->platform;
    dropExceptions([&] { kept.connectivity.startWatching(); });
    return {systemPlatform, {}};
  } catch (const std::system_error& exception) {
    return {nullptr, std::string("The platform could not be set up: ") + exception.what() + "."};
  }
}

RunLoop& PosixPlatform::mainRunLoop() {
  RunLoop* loop = nullptr;
  services_.pass([&](PlatformBackend& backend) { loop = &backend.mainRunLoop(); });
  return loop != nullptr ? *loop : RunLoop::current();
}

void PosixPlatform::applicationDidBecomeActive() {
  services_.pass([](PlatformBackend& backend) {
    backend.enter(ApplicationState::active, kApplicationDidBecomeActive);
  });
}

void PosixPlatform::applicationWillResignActive() {
  services_.pass([](PlatformBackend& backend) {
    backend.enter(ApplicationState::inactive, kApplicationWillResignActive);
  });
}

void PosixPlatform::applicationDidEnterBackground() {
  services_.pass([](PlatformBackend& backend) {
    backend.enter(ApplicationState::background, kApplicationDidEnterBackground);
  });
}

void PosixPlatform::applicationWillEnterForeground() {
  services_.pass([](PlatformBackend& backend) {
    backend.enter(ApplicationState::inactive, kApplicationWillEnterForeground);
  });
}

void PosixPlatform::setInterfaceOrientation(int orientation) {
  services_.pass([&](PlatformBackend& backend) { backend.setInterfaceOrientation(orientation); });
}

void PosixPlatform::setDeviceOrientation(int orientation) {
  services_.pass([&](PlatformBackend& backend) { backend.setDeviceOrientation(orientation); });
}

void PosixPlatform::setScreenSize(double width, double height) {
  services_.pass([&](PlatformBackend& backend) { backend.setScreenSize({width, height}); });
}

void PosixPlatform::setCarrierName(std::optional<std::string> name) {
  services_.pass([&](PlatformBackend& backend) { backend.setCarrierName(std::move(name)); });
}

void PosixPlatform::setTrackingAuthorizationStatus(std::uint64_t status) {
  services_.pass([&](PlatformBackend& backend) { backend.setTrackingAuthorizationStatus(status); });
}

void PosixPlatform::setAdvertisingIdentifier(std::optional<std::string> identifier) {
  services_.pass(
      [&](PlatformBackend& backend) { backend.setAdvertisingIdentifier(std::move(identifier)); });
}

RunLoop& RunLoop::current() {
  TestBackend* const test = testBackend;
  RunLoop* const loop = test != nullptr ? test->currentRunLoop() : nullptr;
  return loop != nullptr ? *loop : currentSystemRunLoop();
}

}  // namespace veltrano

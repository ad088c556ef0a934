#include "veltrano/posix_platform.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/posix/final_flush.h"
#include "platform/posix/http/exit_gate.h"
#include "platform/posix/options.h"
#include "platform/posix/platform_backend.h"
#include "platform/posix/posix_services.h"
#include "platform/posix/system/background_thread.h"
#include "tracker/library.h"

namespace veltrano {

using namespace internal;

namespace {

using Clock = std::chrono::steady_clock;

// How long a shutdown waits, after its deadline, for callbacks that are still running.
constexpr std::chrono::milliseconds kGrace{250};

// Set once, under the mutex of `installOrThrow`.
constinit std::atomic<PosixPlatform*> systemPlatform{nullptr};

// Set by tests one after the other; read from any thread.
constinit std::atomic<TestBackend*> testBackend{nullptr};
constinit std::atomic<PosixPlatform*> testPlatform{nullptr};

// The no-op library that replaces the process's own after a shutdown and in a forked child.
Library& inertLibrary() {
  static Library& inert = *new Library(Platform());
  return inert;
}

// Gives each forked child the inert library. The parent's has no threads there, and its locks may
// be held forever.
void makeForkedChildrenInert() {
  inertLibrary();
  static const int registered = pthread_atfork(nullptr, nullptr, [] {
    hasBeenForked = true;
    Library::exchangeCurrent(&inertLibrary());
  });
  static_cast<void>(registered);  // fails only if memory runs out; forks then go unnoticed
}

// Starts no more callbacks. False if one still runs at `deadline`.
bool stopCallingHost(Clock::time_point deadline) {
  callbacksDisabled = true;
  while (HostCall::count() > 0 && Clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return HostCall::count() == 0;
}

// The backend of the process's platform: the system.
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

  void setScreenSize(ScreenSize size) override { device.setMainScreenSize(size); }

  void setCarrierName(std::optional<std::string> name) override {
    telephony.setCarrierName(std::move(name));
  }

  void setTrackingAuthorizationStatus(std::uint64_t status) override {
    tracking.setTrackingAuthorizationStatus(status);
  }

  void setAdvertisingIdentifier(std::optional<std::string> identifier) override {
    dropExceptions([&] { identifiers.setAdvertisingIdentifier(std::move(identifier)); });
  }

  bool shutDown(Clock::time_point deadline) override {
    {
      std::unique_lock lock(endMutex_);
      const auto thisThread = std::this_thread::get_id();
      if (isShutDown_.exchange(true)) {
        // The shutdown may be running below, on this thread: it destroys what callbacks captured.
        if (endingThread_ == thisThread) return wasComplete_;
        ended_.wait(lock, [this] { return hasEnded_; });
        return wasComplete_;
      }
      endingThread_ = thisThread;
    }
    struct End {
      ~End() {
        const std::lock_guard lock(backend.endMutex_);
        backend.hasEnded_ = true;
        backend.ended_.notify_all();
      }
      SystemBackend& backend;
    };
    const End end{*this};
    bool isFlushed = false;
    dropExceptions([&] { isFlushed = flushUntil(deadline); });
    return wasComplete_ = stop(deadline) && isFlushed;
  }

 private:
  // Flushes as if the application were closed. False if the deadline passes first.
  bool flushUntil(Clock::time_point deadline) {
    application.setState(ApplicationState::background);
    urlSession.ignoreRetryAfter();
    const auto statistics = [] { return Library::current().accounting().statistics(); };
    const auto flush = [&] {
      if (ExitGate::isClosed()) return false;
      notificationCenter.post(kApplicationDidEnterBackground);
      struct Pending {
        ~Pending() { ended.set_value(); }
        std::promise<void> ended;
      };
      auto pending = std::make_shared<Pending>();
      const auto ended = pending->ended.get_future();
      // Destroyed after three rounds: the running block may still see the foreground and replace
      // the final flush, queued after round one; that flush's completion may track more, queued
      // after round two.
      keepForRounds(3, std::move(pending));
      return ended.wait_until(deadline) == std::future_status::ready;
    };
    const auto pause = [&](Duration time) {
      if (Clock::now() + time >= deadline) return false;
      std::this_thread::sleep_for(time);
      return true;
    };
    return flushWithRetries(statistics, flush, pause);
  }

  // Keeps `object` until all that is queued now has run on the work queue, `rounds` times over.
  // Destroys it early if memory runs out.
  void keepForRounds(int rounds, std::shared_ptr<void> object) {
    workQueue.async([this, rounds, object = std::move(object)]() mutable {
      if (rounds > 1) keepForRounds(rounds - 1, std::move(object));
    });
  }

  // True if nothing was left.
  bool stop(Clock::time_point deadline) {
    inertLibrary().accounting().restore(Library::current().accounting());
    Library& library = *Library::exchangeCurrent(&inertLibrary());
    timers.stop();
    workQueue.stop();
    // While the process exits, the gate has stopped the network threads.
    bool isComplete = ExitGate::isClosed() || urlSession.shutDown(deadline);
    isComplete &= workQueue.waitForEnd(Clock::now() + kGrace);
    isComplete &= stopCallingHost(Clock::now() + kGrace);
    library.releaseCallbacks();
    inertLibrary().accounting().restore(library.accounting());
    const Statistics last = inertLibrary().accounting().statistics();
    return isComplete && last.waiting + last.inFlight == 0;
  }

  // Makes `change` and then posts `name`, both on the main thread.
  void announce(std::string_view name, std::function<void()> change) {
    dropExceptions([&] {
      auto announcement = [this, name, change = std::move(change)] {
        if (isShutDown_) return;
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

  // Called on the main thread. Keeps the order of announcements from all threads.
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
      if (isForkedChild()) return;  // a callback forked
    }
  }

  const std::shared_ptr<PosixRunLoop> mainRunLoop_ = PosixRunLoop::ofThisThread();

  std::mutex announcementsMutex_;
  std::deque<std::function<void()>> announcements_;  // guarded by announcementsMutex_

  std::atomic<bool> isShutDown_{false};
  std::mutex endMutex_;
  std::condition_variable ended_;
  std::thread::id endingThread_;  // guarded by endMutex_
  bool hasEnded_ = false;         // guarded by endMutex_
  bool wasComplete_ = false;      // written once, by endingThread_, before hasEnded_ is set
};

}  // namespace

void internal::setTestBackend(TestBackend* backend) noexcept {
  testPlatform = nullptr;
  testBackend = backend;
}

PosixPlatform* internal::installedPlatform() noexcept {
  return testBackend != nullptr ? testPlatform : systemPlatform;
}

struct PosixPlatform::Handle {
  // If `backend` is null, uses the test backend of the moment.
  explicit Handle(PlatformBackend* backend) : backend_(backend) {}

  // Does nothing in a forked child, where the backend's locks may be held forever.
  template <class Report>
  void pass(Report report) {
    PlatformBackend* const backend = this->backend();
    if (backend != nullptr && !isForkedChild()) report(*backend);
  }

  PosixPlatform platform{*this};

  // Null if the platform was installed in an earlier test.
  PlatformBackend* backend() const {
    if (backend_ != nullptr) return backend_;
    return testPlatform != nullptr ? testBackend.load() : nullptr;
  }

  /// Whether a test has replaced the library of this platform.
  bool isReplaced() const { return backend_ != nullptr && testBackend != nullptr; }

 private:
  PlatformBackend* const backend_;
};

PosixPlatform::PosixPlatform(Handle& handle) : handle_(handle) {}

Installation PosixPlatform::install(PosixOptions options) {
  try {
    return installOrThrow(options);
  } catch (const std::exception&) {
    return {nullptr, "Out of memory."};  // short enough to need no allocation
  }
}

Installation PosixPlatform::installOrThrow(PosixOptions& options) {
  static auto& mutex = *new std::mutex;

  if (isForkedChild()) return {nullptr, "A forked child keeps its parent's platform."};
  try {
    if (TestBackend* const test = testBackend) {
      std::string error = completeOptions(options, false);
      error = test->install(std::move(options), std::move(error));
      if (!error.empty()) return {nullptr, std::move(error)};
      // Shared by all tests, because a host may keep the pointer.
      static Handle& handle = *new Handle(nullptr);
      testPlatform = &handle.platform;
      return {testPlatform, {}};
    }
    const std::lock_guard lock(mutex);
    if (systemPlatform != nullptr) return {nullptr, "A platform has been installed already."};
    if (std::string error = completeOptions(options, true); !error.empty())
      return {nullptr, std::move(error)};

    makeForkedChildrenInert();
    auto backend = std::make_unique<SystemBackend>(std::move(options));
    auto handle = std::make_unique<Handle>(backend.get());
    if (!Library::install(backend->platform()))
      return {nullptr, "The library is in use already; install the platform before its first use."};
    SystemBackend& kept = *backend.release();  // the library uses it from now on
    systemPlatform = &handle.release()->platform;
    dropExceptions([&] { kept.connectivity.startWatching(); });
    return {systemPlatform, {}};
  } catch (const std::system_error& exception) {
    return {nullptr, std::string("The platform could not be set up: ") + exception.what() + "."};
  }
}

bool PosixPlatform::shutDown(Clock::time_point deadline) {
  if (isForkedChild() || isBackgroundThread() || HostCall::isOnThisThread()) return false;
  if (handle_.isReplaced()) return false;
  bool wasComplete = false;
  dropExceptions([&] {
    handle_.pass([&](PlatformBackend& backend) { wasComplete = backend.shutDown(deadline); });
  });
  return wasComplete;
}

RunLoop& PosixPlatform::mainRunLoop() {
  PlatformBackend* const backend = handle_.backend();
  return backend != nullptr ? backend->mainRunLoop() : RunLoop::current();
}

void PosixPlatform::applicationDidBecomeActive() {
  handle_.pass([](PlatformBackend& backend) {
    backend.enter(ApplicationState::active, kApplicationDidBecomeActive);
  });
}

void PosixPlatform::applicationWillResignActive() {
  handle_.pass([](PlatformBackend& backend) {
    backend.enter(ApplicationState::inactive, kApplicationWillResignActive);
  });
}

void PosixPlatform::applicationDidEnterBackground() {
  handle_.pass([](PlatformBackend& backend) {
    backend.enter(ApplicationState::background, kApplicationDidEnterBackground);
  });
}

void PosixPlatform::applicationWillEnterForeground() {
  handle_.pass([](PlatformBackend& backend) {
    backend.enter(ApplicationState::inactive, kApplicationWillEnterForeground);
  });
}

void PosixPlatform::setInterfaceOrientation(int orientation) {
  handle_.pass([&](PlatformBackend& backend) { backend.setInterfaceOrientation(orientation); });
}

void PosixPlatform::setDeviceOrientation(int orientation) {
  handle_.pass([&](PlatformBackend& backend) { backend.setDeviceOrientation(orientation); });
}

void PosixPlatform::setScreenSize(double width, double height) {
  handle_.pass([&](PlatformBackend& backend) { backend.setScreenSize({width, height}); });
}

void PosixPlatform::setCarrierName(std::optional<std::string> name) {
  handle_.pass([&](PlatformBackend& backend) { backend.setCarrierName(std::move(name)); });
}

void PosixPlatform::setTrackingAuthorizationStatus(std::uint64_t status) {
  handle_.pass([&](PlatformBackend& backend) { backend.setTrackingAuthorizationStatus(status); });
}

void PosixPlatform::setAdvertisingIdentifier(std::optional<std::string> identifier) {
  handle_.pass(
      [&](PlatformBackend& backend) { backend.setAdvertisingIdentifier(std::move(identifier)); });
}

RunLoop& RunLoop::current() {
  TestBackend* const test = testBackend;
  RunLoop* const loop = test != nullptr ? test->currentRunLoop() : nullptr;
  return loop != nullptr ? *loop : currentSystemRunLoop();
}

}  // namespace veltrano

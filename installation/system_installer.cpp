#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>

#include "installation/inert_library.h"
#include "installation/platform_backend.h"
#include "installation/shutdown.h"
#include "platform/host_callback.h"
#include "platform/mutex.h"
#include "platform/posix/posix_services.h"

namespace veltrano::internal {
namespace {

// The platform on the system's services.
class SystemBackend final : public PlatformBackend, public PosixServices {
 public:
  using PosixServices::PosixServices;

  RunLoop& mainRunLoop() override { return timers.mainRunLoop(); }

  void report(DeviceChange change, std::string_view notification) override {
    if (notification.empty()) return reports.report(change);
    dropExceptions([&] {
      {
        const Lock lock(mutex_);
        unannounced_.push_back({std::move(change), notification});
      }
      timers.performOnMainThread([this] { announceAll(); });
    });
  }

  bool shutDown(std::chrono::steady_clock::time_point deadline) override {
    isShutDown_ = true;
    return shutdown_.run(deadline);
  }

 private:
  struct Announced {
    DeviceChange change;
    std::string_view notification;
  };

  // On the main thread, in the order of the reports.
  void announceAll() {
    for (;;) {
      Announced next;
      {
        const Lock lock(mutex_);
        if (unannounced_.empty()) return;
        next = std::move(unannounced_.front());
        unannounced_.pop_front();
      }
      if (isShutDown_) continue;
      reports.report(next.change);
      notificationCenter.post(next.notification);
      if (isForkedChild()) return;  // a callback forked
    }
  }

  std::atomic<bool> isShutDown_{false};
  Mutex mutex_;
  std::deque<Announced> unannounced_ GUARDED_BY(mutex_);
  Shutdown shutdown_{*this};
};

// Installs once per process.
class SystemInstaller final : public Installer {
 public:
  std::string install(PosixOptions options, std::string error, std::string fileError) override {
    static auto& mutex = *new std::mutex;
    const std::lock_guard lock(mutex);
    if (backend_ != nullptr) return "A platform has been installed already.";
    if (!error.empty()) return error;
    if (!fileError.empty()) return fileError;
    makeForkedChildrenInert();
    auto backend = std::make_unique<SystemBackend>(std::move(options));
    if (!Library::install(backend->platform()))
      return "The library is in use already; install the platform before its first use.";
    backend_ = backend.release();  // the library uses it from now on
    return {};
  }

  PlatformBackend* installed() override { return backend_; }

 private:
  std::atomic<SystemBackend*> backend_{nullptr};  // set once
};

constinit SystemInstaller systemInstaller;

}  // namespace

Installer& Installer::current() noexcept {
  Installer* const installer = replacement;
  return installer != nullptr ? *installer : systemInstaller;
}

}  // namespace veltrano::internal

#include <mutex>
#include <utility>

#include "installation/announcements.h"
#include "installation/inert_library.h"
#include "installation/platform_backend.h"
#include "installation/shutdown.h"
#include "platform/host_callback.h"
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
    announcements_.announce(notification,
                            [this, change = std::move(change)] { reports.report(change); });
  }

  bool shutDown(std::chrono::steady_clock::time_point deadline) override {
    announcements_.stop();
    return shutdown_.run(deadline);
  }

 private:
  Announcements announcements_{timers, notificationCenter};
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

#include "veltrano/posix_platform.h"

#include <cmath>
#include <exception>
#include <system_error>
#include <utility>

#include "installation/platform_backend.h"
#include "platform/host_callback.h"
#include "platform/notification_center.h"
#include "platform/posix/options.h"
#include "platform/posix/threads/run_loop.h"

namespace veltrano {

using namespace internal;

namespace {

// Passes a report on if a platform is installed. Not in a forked child, where its locks may be held
// forever.
template <class Report>
void pass(Report report) {
  if (isForkedChild()) return;
  dropExceptions([&] {
    if (PlatformBackend* const backend = Installer::current().installed()) report(*backend);
  });
}

void enter(ApplicationState state, std::string_view notification) {
  pass([&](PlatformBackend& backend) { backend.enter(state, notification); });
}

// Returns why the platform is refused; empty if it is installed.
std::string installWith(PosixOptions& options) {
  if (isForkedChild()) return "A forked child keeps its parent's platform.";
  try {
    std::string error = completeOptions(options);
    std::string fileError = error.empty() ? checkFiles(options) : std::string();
    return Installer::current().install(std::move(options), std::move(error), std::move(fileError));
  } catch (const std::system_error& exception) {
    return std::string("The platform could not be set up: ") + exception.what() + ".";
  }
}

}  // namespace

PosixPlatform* internal::installedPlatform() noexcept {
  static constinit PosixPlatform platform;
  return Installer::current().installed() != nullptr ? &platform : nullptr;
}

Installation PosixPlatform::install(PosixOptions options) {
  try {
    std::string error = installWith(options);
    return {error.empty() ? installedPlatform() : nullptr, std::move(error)};
  } catch (const std::exception&) {
    return {nullptr, "Out of memory."};  // short enough to need no allocation
  }
}

bool PosixPlatform::shutDown(std::chrono::steady_clock::time_point deadline) {
  bool wasComplete = false;
  if (HostCode::isLibraryThread || HostCall::isOnThisThread()) return false;
  pass([&](PlatformBackend& backend) { wasComplete = backend.shutDown(deadline); });
  return wasComplete;
}

RunLoop& PosixPlatform::mainRunLoop() {
  PlatformBackend* const backend = Installer::current().installed();
  return backend != nullptr ? backend->mainRunLoop() : RunLoop::current();
}

void PosixPlatform::applicationDidBecomeActive() {
  enter(ApplicationState::active, kApplicationDidBecomeActive);
}

void PosixPlatform::applicationWillResignActive() {
  enter(ApplicationState::inactive, kApplicationWillResignActive);
}

void PosixPlatform::applicationDidEnterBackground() {
  enter(ApplicationState::background, kApplicationDidEnterBackground);
}

void PosixPlatform::applicationWillEnterForeground() {
  enter(ApplicationState::inactive, kApplicationWillEnterForeground);
}

void PosixPlatform::setInterfaceOrientation(int orientation) {
  pass([&](PlatformBackend& backend) { backend.setInterfaceOrientation(orientation); });
}

void PosixPlatform::setDeviceOrientation(int orientation) {
  pass([&](PlatformBackend& backend) { backend.setDeviceOrientation(orientation); });
}

void PosixPlatform::setScreenSize(double width, double height) {
  if (!std::isfinite(width) || !std::isfinite(height)) return;
  pass([&](PlatformBackend& backend) { backend.setScreenSize({width, height}); });
}

void PosixPlatform::setCarrierName(std::optional<std::string> name) {
  pass([&](PlatformBackend& backend) { backend.setCarrierName(std::move(name)); });
}

void PosixPlatform::setTrackingAuthorizationStatus(std::uint64_t status) {
  pass([&](PlatformBackend& backend) { backend.setTrackingAuthorizationStatus(status); });
}

void PosixPlatform::setAdvertisingIdentifier(std::optional<std::string> identifier) {
  pass([&](PlatformBackend& backend) { backend.setAdvertisingIdentifier(identifier); });
}

RunLoop& RunLoop::current() {
  RunLoop* const loop = Installer::current().currentRunLoop();
  return loop != nullptr ? *loop : currentSystemRunLoop();
}

}  // namespace veltrano

#include "benchmarks/bench_platform.h"

#include <cstdio>
#include <cstdlib>
#include <semaphore>
#include <string_view>

#include "platform/posix/device/clock_and_random.h"
#include "platform/posix/device/connectivity.h"
#include "platform/posix/device/host_reports.h"
#include "platform/posix/device/standard_output.h"
#include "platform/posix/http/authentication.h"
#include "platform/posix/storage/bundles.h"
#include "platform/posix/storage/user_defaults.h"
#include "platform/posix/threads/fork.h"
#include "platform/posix/threads/notification_center.h"
#include "platform/posix/threads/run_loop.h"
#include "platform/posix/threads/work_queue.h"
#include "veltrano/veltrano.h"

namespace bench {
namespace {

struct Services {
  veltrano::PosixClock clock;
  veltrano::PosixStandardOutput output{[](std::string_view) {}};
  veltrano::PosixDispatch dispatch;
  veltrano::PosixTimers timers;
  veltrano::PosixNotificationCenter notificationCenter;
  veltrano::PosixUserDefaults userDefaults{""};
  veltrano::PosixRandomSource randomSource;
  veltrano::PosixBundles bundles{
      veltrano::HostMap{{"CFBundleShortVersionString", "3.2.1"}, {"CFBundleVersion", "4711"}}};
  veltrano::PosixApplication application{veltrano::ApplicationState::active, 1};
  veltrano::PosixDevice device{std::nullopt, std::nullopt};
  veltrano::PosixTelephony telephony;
  veltrano::PosixTracking tracking;
  veltrano::PosixIdentifiers identifiers;
  veltrano::PosixConnectivity connectivity;
  veltrano::ZKAuthTokenRepository tokens{nullptr};
  veltrano::ZKAuth auth;
};

Services& services() {
  static auto& instance = *new Services;  // the library's threads use it until the process ends
  return instance;
}

}  // namespace

void installBenchPlatform(veltrano::ZKURLSessionManager& session, veltrano::Dispatch* dispatch) {
  Services& posix = services();
  veltrano::watchForks();
  posix.device.setMainScreenSize({1179, 2556});
  const bool installed = veltrano::installPlatform({
      .collectionHost = "events.example.com",
      .wallClock = posix.clock,
      .standardOutput = posix.output,
      .dispatch = dispatch != nullptr ? *dispatch : posix.dispatch,
      .timers = posix.timers,
      .notificationCenter = posix.notificationCenter,
      .userDefaults = posix.userDefaults,
      .randomSource = posix.randomSource,
      .bundles = posix.bundles,
      .application = posix.application,
      .device = posix.device,
      .telephony = posix.telephony,
      .trackingManager = posix.tracking,
      .identifierManager = posix.identifiers,
      .connectivity = posix.connectivity,
      .urlSession = session,
      .sessionTokenProvider = posix.tokens,
      .userSessionManager = posix.auth,
  });
  if (!installed) {
    std::fputs("There is a platform already.\n", stderr);
    std::exit(1);
  }
  posix.connectivity.startWatching();
}

void enterBackground() {
  services().application.setState(veltrano::ApplicationState::background);
  services().notificationCenter.post(veltrano::kApplicationDidEnterBackground);
}

void drainTracker() {
  std::binary_semaphore uploaded(0);
  Veltrano::shared().track("Drained", {}, [&](bool) { uploaded.release(); });
  uploaded.acquire();
}

}  // namespace bench

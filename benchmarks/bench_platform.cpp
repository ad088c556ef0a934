#include "benchmarks/bench_platform.h"

#include <cstdio>
#include <cstdlib>
#include <semaphore>
#include <string_view>

#include "platform/posix/posix_services.h"
#include "tracker/library.h"
#include "veltrano/veltrano.h"

namespace bench {
namespace {

veltrano::internal::PosixServices& services() {
  // Never destroyed: the library's threads use it until the process ends.
  static auto& instance = *new veltrano::internal::PosixServices([] {
    veltrano::PosixOptions options;
    options.collectionHost = "events.example.com";
    options.infoDictionary =
        veltrano::HostMap{{"CFBundleShortVersionString", "3.2.1"}, {"CFBundleVersion", "4711"}};
    options.logSink = [](std::string_view) {};
    options.screenWidth = 1179;
    options.screenHeight = 2556;
    options.interfaceOrientation = 1;
    return options;
  }());
  return instance;
}

}  // namespace

void installBenchPlatform(veltrano::internal::ZKURLSessionManager& session,
                          veltrano::internal::WorkQueue* workQueue) {
  veltrano::internal::Platform platform = services().platform();
  platform.urlSession = &session;
  if (workQueue != nullptr) platform.workQueue = workQueue;
  if (!veltrano::internal::Library::install(platform)) {
    std::fputs("There is a platform already.\n", stderr);
    std::exit(1);
  }
}

void enterBackground() {
  services().reports.set(&veltrano::internal::DeviceFacts::applicationState,
                         veltrano::internal::ApplicationState::background);
  services().notificationCenter.post(veltrano::internal::kApplicationDidEnterBackground);
}

void drainTracker() {
  std::binary_semaphore uploaded(0);
  Veltrano::shared().track("Drained", {}, [&](bool) { uploaded.release(); });
  uploaded.acquire();
}

}  // namespace bench

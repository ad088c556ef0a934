#include "benchmarks/bench_platform.h"

#include <cstdio>
#include <cstdlib>

#include "benchmarks/host.h"
#include "platform/posix/posix_services.h"
#include "tracker/library.h"

namespace bench {
namespace {

veltrano::internal::PosixServices& services() {
  // Never destroyed: the library's threads use it until the process ends.
  static auto& instance = *new veltrano::internal::PosixServices(hostOptions("events.example.com"));
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

}  // namespace bench

// What the hosts of the benchmarks have in common.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <semaphore>
#include <string_view>
#include <utility>

#include "veltrano/posix_platform.h"
#include "veltrano/veltrano.h"

namespace bench {

inline veltrano::PosixOptions hostOptions(const char* collectionHost) {
  veltrano::PosixOptions options;
  options.collectionHost = collectionHost;
  options.infoDictionary =
      veltrano::HostMap{{"CFBundleShortVersionString", "3.2.1"}, {"CFBundleVersion", "4711"}};
  options.logSink = [](std::string_view) {};
  options.screenWidth = 1179;
  options.screenHeight = 2556;
  options.interfaceOrientation = 1;
  return options;
}

/// Installs the platform from the last two arguments, which `scripts/with-collector` appends. Exits
/// with 1 if that fails.
inline void installCollectingHost(int argc, char** argv) {
  veltrano::PosixOptions options = hostOptions(argc > 2 ? argv[argc - 2] : "");
  options.certificateAuthorities = argc > 2 ? argv[argc - 1] : "";
  if (const auto installation = veltrano::PosixPlatform::install(std::move(options));
      !installation) {
    std::fprintf(stderr, "Run me with scripts/with-collector: %s\n", installation.error.c_str());
    std::exit(1);
  }
}

/// Waits until the library has read all calls and uploaded their events.
inline void drain() {
  std::binary_semaphore uploaded(0);
  Veltrano::shared().track("Drained", {}, [&](bool) { uploaded.release(); });
  uploaded.acquire();
}

inline void trackWithProperties() {
  Veltrano::shared().track(
      "Bought",
      {{"plan", "pro"}, {"items", 3}, {"price", 9.5}, {"first", true}, {"store", "north"}});
}

}  // namespace bench

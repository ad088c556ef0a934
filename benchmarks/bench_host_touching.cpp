// A host that only installs the platform and calls `shared`. Prints the nanoseconds that each took,
// and how often libcurl was initialised.
#include <dlfcn.h>

#include <chrono>
#include <cstdio>

#include "veltrano/posix_platform.h"
#include "veltrano/veltrano.h"

namespace {

int curlInitialisations = 0;

using Clock = std::chrono::steady_clock;

long long nanoseconds(Clock::duration duration) {
  return std::chrono::nanoseconds(duration).count();
}

}  // namespace

// Interposes libcurl's function.
// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" [[gnu::visibility("default")]] int curl_global_init(long flags) {
  ++curlInitialisations;
  const auto original = reinterpret_cast<int (*)(long)>(dlsym(RTLD_NEXT, "curl_global_init"));
  return original(flags);
}

int main() {
  veltrano::PosixOptions options;
  options.collectionHost = "events.example.com";
  const auto start = Clock::now();
  if (!veltrano::PosixPlatform::install(std::move(options))) return 1;
  const auto installed = Clock::now();
  Veltrano::shared();
  const auto touched = Clock::now();
  std::printf("%lld %lld %d\n", nanoseconds(installed - start), nanoseconds(touched - installed),
              curlInitialisations);
  return 0;
}

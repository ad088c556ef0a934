// A host whose system calls fail: busy_host CALL NUMBER HOST CERTIFICATE DIRECTORY. Delivers an
// event all the same, and ends without a leak; with 2 if the call was made less often.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "veltrano/posix_platform.h"
#include "veltrano/veltrano.h"

// failing_calls.c
extern "C" void failCall(const char* name, int number);
extern "C" bool hasFailed();

namespace {

using namespace std::chrono_literals;

std::chrono::steady_clock::time_point in(std::chrono::seconds time) {
  return std::chrono::steady_clock::now() + time;
}

std::ptrdiff_t entriesOf(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory), {});
}

void expect(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "%s\n%s", what, Veltrano::status().c_str());
  std::_Exit(1);
}

}  // namespace

int main(int, char** arguments) {
  alarm(100);
  const auto descriptors = entriesOf("/proc/self/fd");
  veltrano::PosixOptions options;
  options.collectionHost = arguments[3];
  options.certificateAuthorities = arguments[4];
  options.userDefaultsFile = std::string(arguments[5]) + "/" + arguments[1] + arguments[2];
  options.sessionToken = [] { return "token"; };
  veltrano::RunLoop* loop = nullptr;
  options.onTransfer = [&](const veltrano::TransferReport& report) {
    if (report.path == "/heartbeat") loop->stop();
  };
  failCall(arguments[1], std::atoi(arguments[2]));
  auto installation = veltrano::PosixPlatform::install(options);
  if (!installation) installation = veltrano::PosixPlatform::install(options);
  expect(bool(installation), "not even the second installation succeeded");
  loop = &installation.platform->mainRunLoop();
  auto& tracker = Veltrano::shared();
  tracker.setUserId("user");
  for (int i = 0; i < 15; ++i) tracker.track("E", {{"i", i}});
  loop->runUntil(in(4s));
  bool wasDelivered = false;
  for (int attempts = 0; !wasDelivered && attempts < 5; ++attempts) {
    tracker.track("Last", {}, [&](bool accepted) {
      wasDelivered = accepted;
      loop->stop();
    });
    loop->runUntil(in(15s));
  }
  expect(wasDelivered, "the event was not delivered");
  expect(installation.platform->shutDown(in(20s)), "the shutdown left something");
  const auto counts = tracker.statistics();
  expect(counts.recorded == counts.delivered, "an event was lost");
  const auto end = in(15s);
  while (entriesOf("/proc/self/fd") > descriptors || entriesOf("/proc/self/task") > 1) {
    expect(std::chrono::steady_clock::now() < end, "a descriptor or a thread is left over");
    std::this_thread::yield();
  }
  return hasFailed() ? 0 : 2;
}

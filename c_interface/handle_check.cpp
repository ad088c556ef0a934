#include "c_interface/handle_check.h"

#ifndef NDEBUG

#include <pthread.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <unordered_set>
#include <utility>

namespace veltrano {
namespace {

struct Handles {
  std::mutex mutex;  // guards everything below
  std::unordered_set<const void*> live;
  std::array<void*, 4096> released{};  // the memory of the last ones
  std::size_t releasedCount = 0;
};

// A fork waits for the lock, so that the child does not find it held.
Handles& handles() {
  static Handles& instance = *new Handles;
  [[maybe_unused]] static const int registered =
      pthread_atfork([] { instance.mutex.lock(); }, [] { instance.mutex.unlock(); },
                     [] { instance.mutex.unlock(); });
  return instance;
}

[[noreturn]] void fail(const void* handle, const char* mistake) {
  std::fprintf(stderr, "veltrano: the handle %p %s.\n", handle, mistake);
  std::abort();
}

}  // namespace

void noteMade(const void* handle) {
  const std::lock_guard lock(handles().mutex);
  handles().live.insert(handle);
}

void expectLive(const void* handle) {
  const std::lock_guard lock(handles().mutex);
  if (handles().live.count(handle) == 0)
    fail(handle, "is used, but is none or was released before");
}

void noteReleased(const void* handle) {
  const std::lock_guard lock(handles().mutex);
  if (handles().live.erase(handle) == 0)
    fail(handle, "is released, but is none or was released before");
}

void freeLater(void* memory) {
  const std::lock_guard lock(handles().mutex);
  auto& released = handles().released;
  void*& place = released[handles().releasedCount++ % released.size()];
  ::operator delete(std::exchange(place, memory));
}

}  // namespace veltrano

#endif

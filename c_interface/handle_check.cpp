#include "c_interface/handle_check.h"

#ifndef NDEBUG

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <unordered_set>
#include <utility>

namespace veltrano::internal {
namespace {

struct Handles {
  std::mutex mutex;  // guards everything below
  std::unordered_set<const void*> live;
  std::array<void*, 4096> released{};  // the memory of the last ones
  std::size_t releasedCount = 0;
};

Handles& handles() {
  static Handles& instance = *new Handles;
  return instance;
}

// In a forked child the lock may be held for good, so there nothing is checked. This is another
// thing than the library's own view of forks, which begins with its platform.
std::atomic<bool> isOff{false};
[[maybe_unused]] const int registered = pthread_atfork(nullptr, nullptr, [] { isOff = true; });

// Without the lock, as what it calls may come back here.
void expect(bool isLive, const void* handle, const char* mistake) {
  if (isLive) return;
  std::fprintf(stderr, "veltrano: the handle %p %s.\n", handle, mistake);
  std::abort();
}

}  // namespace

void noteMade(const void* handle) {
  if (isOff) return;
  const std::lock_guard lock(handles().mutex);
  handles().live.insert(handle);
}

void expectLive(const void* handle) {
  if (isOff) return;
  std::unique_lock lock(handles().mutex);
  const bool isLive = handles().live.count(handle) != 0;
  lock.unlock();
  expect(isLive, handle, "is used, but is none or was released before");
}

void noteReleased(const void* handle) {
  if (isOff) return;
  std::unique_lock lock(handles().mutex);
  const bool wasLive = handles().live.erase(handle) != 0;
  lock.unlock();
  expect(wasLive, handle, "is released, but is none or was released before");
}

void freeLater(void* memory) {
  if (!isOff) {
    const std::lock_guard lock(handles().mutex);
    auto& released = handles().released;
    std::swap(memory, released[handles().releasedCount++ % released.size()]);
  }
  ::operator delete(memory);
}

}  // namespace veltrano::internal

#endif

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
  std::array<void*, 4096> released{};  // memory of the most recently released ones
  std::size_t releasedCount = 0;
};

// Never destroyed. In static memory, because allocating it could fail.
Handles& handles() {
  alignas(Handles) static std::byte memory[sizeof(Handles)];
  static Handles& instance = *new (memory) Handles;
  return instance;
}

// Checks nothing in a forked child, where the lock may be held forever. `isForkedChild` is not
// enough: the library detects forks only once a platform is installed.
std::atomic<bool> isOff{false};
[[maybe_unused]] const int registered = pthread_atfork(nullptr, nullptr, [] { isOff = true; });

// Called without the lock: a handler of SIGABRT may use the library.
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
  expect(isLive, handle, "is invalid or already released");
}

void noteReleased(const void* handle) {
  if (isOff) return;
  std::unique_lock lock(handles().mutex);
  const bool wasLive = handles().live.erase(handle) != 0;
  lock.unlock();
  expect(wasLive, handle, "is released, but is invalid or already released");
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

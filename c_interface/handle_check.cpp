#include "c_interface/handle_check.h"

#ifndef NDEBUG

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <unordered_set>

#include "platform/process.h"

namespace veltrano {
namespace {

struct Handles {
  static constexpr std::size_t kMostKept = 4096;

  std::mutex mutex;  // guards everything below
  std::unordered_set<const void*> live;
  std::deque<void*> released;  // their memory
};

Handles& handles() {
  static Handles& instance = *new Handles;
  return instance;
}

[[noreturn]] void fail(const void* handle, const char* mistake) {
  std::fprintf(stderr, "veltrano: the handle %p %s.\n", handle, mistake);
  std::abort();
}

}  // namespace

// In a forked child the lock may be held for good, so there nothing is checked or freed.

void noteMade(const void* handle) {
  if (isForkedChild()) return;
  const std::lock_guard lock(handles().mutex);
  handles().live.insert(handle);
}

void expectLive(const void* handle) {
  if (isForkedChild()) return;
  const std::lock_guard lock(handles().mutex);
  if (handles().live.count(handle) == 0)
    fail(handle, "is used, but is none or was released before");
}

void noteReleased(const void* handle) {
  if (isForkedChild()) return;
  const std::lock_guard lock(handles().mutex);
  if (handles().live.erase(handle) == 0)
    fail(handle, "is released, but is none or was released before");
}

void freeLater(void* memory) {
  if (isForkedChild()) return;
  const std::lock_guard lock(handles().mutex);
  handles().released.push_back(memory);
  if (handles().released.size() <= Handles::kMostKept) return;
  ::operator delete(handles().released.front());
  handles().released.pop_front();
}

}  // namespace veltrano

#endif

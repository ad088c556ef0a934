#include "c_interface/handle_check.h"

#ifndef NDEBUG

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <unordered_set>

namespace veltrano {
namespace {

struct Handles {
  static constexpr std::size_t kMostKept = 0;

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
  handles().released.push_back(memory);
  if (handles().released.size() <= Handles::kMostKept) return;
  ::operator delete(handles().released.front());
  handles().released.pop_front();
}

}  // namespace veltrano

#endif

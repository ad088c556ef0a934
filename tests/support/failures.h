// Makes system calls and allocations of the library fail on request. Link the program with --wrap
// for each wrapped function in failures.cpp.
#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "veltrano/posix_platform.h"

namespace veltrano::failures {

inline std::atomic<bool> hasNoThreads{false};           // pthread_create fails
inline std::atomic<bool> hasOneDescriptorTable{false};  // close_range fails

/// Lookups of this name do not return while `areLookupsStuck`.
inline const std::string kStuckName = "stuck.invalid";
inline std::atomic<bool> areLookupsStuck{false};
inline std::atomic<int> stuckLookups{0};

/// Makes `count` allocations of the library fail, starting with number `first`, counted from 0, and
/// runs `work` as if it were the library. The library's are those of its threads, of what runs as
/// if it were, and of libcurl; with `new` and, unless a sanitizer has its own, `calloc`.
void runWithout(int first, int count, const std::function<void()>& work);
void runAsLibrary(const std::function<void()>& work);
inline thread_local bool isLibrarys = false;
/// Lets allocations succeed again. Returns whether any has failed.
bool stopFailing();

/// Options with a collection host that refuses connections.
inline PosixOptions refused() {
  PosixOptions options;
  options.collectionHost = "localhost:1";
  return options;
}

}  // namespace veltrano::failures

// Makes system calls and allocations of the library fail on request. Link the program with --wrap
// for each wrapped function in failures.cpp.
#pragma once

#include <atomic>
#include <string>

namespace veltrano::failures {

inline std::atomic<bool> hasNoThreads{false};           // pthread_create fails
inline std::atomic<bool> hasOneDescriptorTable{false};  // close_range fails

/// Lookups of this name do not return while `areLookupsStuck`.
inline const std::string kStuckName = "stuck.invalid";
inline std::atomic<bool> areLookupsStuck{false};
inline std::atomic<int> stuckLookups{0};

/// Makes `count` allocations of the library fail, starting with number `first`, counted from 0. The
/// library's are those of its threads, of a thread that has set `isLibrarys`, and of libcurl; with
/// `new` and, unless a sanitizer has its own, `calloc`.
void failAllocations(int first, int count);
/// Stops that. Returns whether any allocation has failed.
bool stopFailing();
inline thread_local bool isLibrarys = false;

}  // namespace veltrano::failures

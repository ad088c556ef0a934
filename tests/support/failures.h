// Makes what the library asks of the system fail when a test wants it to. The program has to be
// linked with --wrap for each of the wrapped functions in failures.cpp.
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

/// From the allocation number `first` of the library on, counted from 0, `count` allocations fail:
/// those of its threads, those of a thread that has set `isLibrarys`, and libcurl's.
void failAllocations(int first, int count);
/// Whether any has failed; none does afterwards.
bool stopFailing();
inline thread_local bool isLibrarys = false;

}  // namespace veltrano::failures

// Finds handles that a host uses or releases after their release. In builds for debugging only:
// elsewhere it finds nothing and costs nothing.
#pragma once

#include <new>

namespace veltrano::internal {

#ifdef NDEBUG

inline void noteMade(const void*) {}
inline void expectLive(const void*) {}
inline void noteReleased(const void*) {}
inline void freeLater(void* memory) {
  ::operator delete(memory);
}

#else

/// `handle` is live from now on.
void noteMade(const void* handle);

/// Ends the process with a message unless `handle` is live.
void expectLive(const void* handle);

/// Like `expectLive`; afterwards the handle is live no longer.
void noteReleased(const void* handle);

/// Frees the memory of a released handle, but late, so that no new one soon stands in its place.
void freeLater(void* memory);

#endif

}  // namespace veltrano::internal

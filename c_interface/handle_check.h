// Detects handles that a host uses or releases after their release. Debug builds only; no-ops
// otherwise.
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

/// Marks `handle` as live.
void noteMade(const void* handle);

/// Aborts with a message unless `handle` is live.
void expectLive(const void* handle);

/// Like `expectLive`, and marks the handle as released.
void noteReleased(const void* handle);

/// Frees the memory of a released handle with a delay, so that a new handle does not soon reuse its
/// address.
void freeLater(void* memory);

#endif

}  // namespace veltrano::internal

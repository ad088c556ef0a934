// RapidJSON's compile-time settings. Include this before any of its headers.
#pragma once

#include <cstddef>
#include <cstring>
#include <new>

// A host may use RapidJSON with other settings. In a shared namespace that would violate the
// one-definition rule.
#define RAPIDJSON_NAMESPACE veltrano::internal::rapidjson
#define RAPIDJSON_NAMESPACE_BEGIN namespace veltrano::internal::rapidjson {
#define RAPIDJSON_NAMESPACE_END }

// RapidJSON's own 32-bit sizes overflow when 700 MB of text are escaped.
#define RAPIDJSON_NO_SIZETYPEDEFINE
namespace veltrano::internal::rapidjson {
using SizeType = std::size_t;
}

// A failed assertion would abort the host.
#define RAPIDJSON_ASSERT(condition) static_cast<void>(0)

namespace veltrano::internal {

/// Throws when memory runs out. RapidJSON's own allocators return null, which it writes through.
struct ThrowingAllocator {
  static constexpr bool kNeedFree = true;

  void* Malloc(std::size_t size) { return size != 0 ? ::operator new(size) : nullptr; }
  void* Realloc(void* old, std::size_t oldSize, std::size_t newSize) {
    void* const memory = Malloc(newSize);
    if (old != nullptr && memory != nullptr)
      std::memcpy(memory, old, oldSize < newSize ? oldSize : newSize);
    Free(old);
    return memory;
  }
  static void Free(void* memory) { ::operator delete(memory); }
};

}  // namespace veltrano::internal

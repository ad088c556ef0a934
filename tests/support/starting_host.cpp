// A host that runs out of memory while it starts: starting_host HOST CERTIFICATE bytes COUNT has so
// many bytes for installing the platform; with "allocation" instead, that one fails until an event
// has been delivered, counted from 0. Installs again, with all memory, if that was refused, and
// expects a delivery. Ends with 2 if no allocation failed.
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <future>
#include <string>
#include <utility>

#include "veltrano/posix_platform.h"
#include "veltrano/veltrano.h"

namespace {

std::atomic<bool> isLimited{false};
std::atomic<bool> hasFailed{false};
std::atomic<long> left{1L << 40};  // bytes
std::atomic<long> until{-1};       // the allocation that fails; negative: none

// Counts memory that is taken (1) or given back (-1).
void* counted(void* memory, long sign) {
  if (isLimited && memory != nullptr) left -= sign * static_cast<long>(malloc_usable_size(memory));
  return memory;
}

bool isThere(std::size_t size) {
  if (!isLimited || (until-- != 0 && static_cast<long>(size) <= left)) return true;
  hasFailed = true;
  errno = ENOMEM;
  return false;
}

}  // namespace

// Replace the C library's.
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void __libc_free(void*);

void* malloc(std::size_t size) noexcept {
  return isThere(size) ? counted(__libc_malloc(size), 1) : nullptr;
}
void* calloc(std::size_t count, std::size_t size) noexcept {
  return isThere(count * size) ? counted(__libc_calloc(count, size), 1) : nullptr;
}
void* realloc(void* old, std::size_t size) noexcept {
  return isThere(size) ? counted(__libc_realloc(counted(old, -1), size), 1) : nullptr;
}
void free(void* memory) noexcept {
  __libc_free(counted(memory, -1));
}
}

int main(int, char** arguments) {
  alarm(60);
  veltrano::PosixOptions options;
  options.collectionHost = arguments[1];
  options.certificateAuthorities = arguments[2];
  const bool countsBytes = arguments[3] == std::string("bytes");
  (countsBytes ? left : until) = std::atol(arguments[4]);
  veltrano::PosixOptions given = options;
  isLimited = true;
  auto installation = veltrano::PosixPlatform::install(std::move(given));
  if (countsBytes) isLimited = false;
  if (!installation) {
    if (installation.error.empty()) return 3;
    installation = veltrano::PosixPlatform::install(options);
  }
  if (!installation) return 4;
  for (int attempt = 0; attempt < 3; ++attempt) {
    try {
      auto outcome = std::make_shared<std::promise<bool>>();
      auto wasDelivered = outcome->get_future();
      Veltrano::shared().track(
          "E", {}, [outcome = std::move(outcome)](bool result) { outcome->set_value(result); });
      if (wasDelivered.get()) _exit(hasFailed ? 0 : 2);
    } catch (const std::exception&) {
      // The host's own memory, or a call that was dropped with its completion.
    }
  }
  return 5;
}

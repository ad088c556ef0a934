// A host that finds little memory when it installs the platform: starting_host BYTES HOST
// CERTIFICATE. Installs again, with all memory, if that was refused, and expects a delivery. Ends
// with 2 if the memory sufficed.
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <future>
#include <string>

#include "veltrano/posix_platform.h"
#include "veltrano/veltrano.h"

namespace {

std::atomic<bool> isLimited{false};
std::atomic<bool> hasFailed{false};
std::atomic<long> left{0};  // bytes

void* take(void* memory) {
  if (isLimited && memory != nullptr) left -= static_cast<long>(malloc_usable_size(memory));
  return memory;
}

void give(void* memory) {
  if (isLimited && memory != nullptr) left += static_cast<long>(malloc_usable_size(memory));
}

bool isThere(std::size_t size) {
  if (!isLimited || static_cast<long>(size) <= left) return true;
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
  return isThere(size) ? take(__libc_malloc(size)) : nullptr;
}
void* calloc(std::size_t count, std::size_t size) noexcept {
  return isThere(count * size) ? take(__libc_calloc(count, size)) : nullptr;
}
void* realloc(void* old, std::size_t size) noexcept {
  if (!isThere(size)) return nullptr;
  give(old);
  return take(__libc_realloc(old, size));
}
void free(void* memory) noexcept {
  give(memory);
  __libc_free(memory);
}
}

int main(int, char** arguments) {
  alarm(60);
  veltrano::PosixOptions options;
  options.collectionHost = arguments[2];
  options.certificateAuthorities = arguments[3];
  veltrano::PosixOptions given = options;
  left = std::atol(arguments[1]);
  isLimited = true;
  auto installation = veltrano::PosixPlatform::install(std::move(given));
  isLimited = false;
  if (!installation) {
    if (installation.error.empty()) return 3;
    installation = veltrano::PosixPlatform::install(options);
  }
  if (!installation) return 4;
  std::promise<bool> outcome;
  Veltrano::shared().track("E", {}, [&](bool wasDelivered) { outcome.set_value(wasDelivered); });
  if (!outcome.get_future().get()) return 5;
  _exit(hasFailed ? 0 : 2);
}

#include "tests/support/failures.h"

#include <curl/curl.h>
#include <netdb.h>
#include <pthread.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

namespace veltrano::failures {
namespace {

std::atomic<bool> isFailing{false};
std::atomic<int> position{0};
std::atomic<int> firstToFail{0};
std::atomic<int> endOfFailing{0};

bool isThreadLibrarys() {
  char name[16] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return std::string_view(name).find("veltrano") != std::string_view::npos;
}

bool fails() {
  if (!isFailing) return false;
  thread_local const bool isOwnThread = isThreadLibrarys();
  if (!isOwnThread && !isLibrarys) return false;
  const int number = position++;
  return number >= firstToFail && number < endOfFailing;
}

void* curlMalloc(std::size_t size) {
  return fails() ? nullptr : std::malloc(size);
}
void* curlCalloc(std::size_t count, std::size_t size) {
  void* const memory = curlMalloc(count * size);
  return memory != nullptr ? std::memset(memory, 0, count * size) : nullptr;
}
void* curlRealloc(void* old, std::size_t size) {
  return fails() ? nullptr : std::realloc(old, size);
}
char* curlStrdup(const char* text) {
  return fails() ? nullptr : strdup(text);
}

// Before any other code initialises libcurl.
const CURLcode initialized = curl_global_init_mem(CURL_GLOBAL_DEFAULT, curlMalloc, std::free,
                                                  curlRealloc, curlStrdup, curlCalloc);

}  // namespace

void runAsLibrary(const std::function<void()>& work) {
  isLibrarys = true;
  work();
  isLibrarys = false;
}

void runWithout(int first, int count, const std::function<void()>& work) {
  position = 0;
  firstToFail = first;
  endOfFailing = first + count;
  isFailing = true;
  runAsLibrary(work);
}

bool stopFailing() {
  isFailing = false;
  return position > firstToFail;
}

}  // namespace veltrano::failures

namespace failures = veltrano::failures;

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VELTRANO_OTHER_NEW  // ThreadSanitizer's own
#endif
#endif

#ifndef VELTRANO_SANITIZED
// Also for the C library itself, which keeps what belongs to threads in such memory.
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* calloc(std::size_t count, std::size_t size) noexcept {
  if (!failures::fails()) return __libc_calloc(count, size);
  errno = ENOMEM;
  return nullptr;
}
#endif

#ifndef VELTRANO_OTHER_NEW
void* operator new(std::size_t size) {
  void* const memory = failures::fails() ? nullptr : std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
#endif

extern "C" {

int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
  if (failures::hasNoThreads) return EAGAIN;
  return __real_pthread_create(thread, attributes, body, argument);
}

int __real_close_range(unsigned first, unsigned last, int flags);
int __wrap_close_range(unsigned first, unsigned last, int flags) {
  if (failures::hasOneDescriptorTable) {
    errno = ENOSYS;
    return -1;
  }
  return __real_close_range(first, last, flags);
}

int __real_getaddrinfo(const char*, const char*, const addrinfo*, addrinfo**);
int __wrap_getaddrinfo(const char* host, const char* port, const addrinfo* hints,
                       addrinfo** found) {
  if (failures::kStuckName != host) return __real_getaddrinfo(host, port, hints, found);
  ++failures::stuckLookups;
  failures::areLookupsStuck.wait(true);
  return __real_getaddrinfo("127.0.0.1", port, hints, found);
}

}  // extern "C"

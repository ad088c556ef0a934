#pragma once

#include <pthread.h>

#include <system_error>

namespace veltrano::internal {

/// A per-thread pointer that is released when the thread ends, after its thread-local destructors.
/// Unlike a thread-local object with a destructor, which ends the process when memory runs out, it
/// says when it cannot be set. At exit, the main thread's is kept.
class ThreadKey {
 public:
  /// Throws std::system_error when the process has no key left.
  explicit ThreadKey(void (*release)(void*)) {
    if (const int error = pthread_key_create(&key_, release); error != 0)
      throw std::system_error(error, std::generic_category(), "no key for data of threads");
  }
  ThreadKey(const ThreadKey&) = delete;
  ThreadKey& operator=(const ThreadKey&) = delete;

  void* get() const { return pthread_getspecific(key_); }

  /// False when memory runs out.
  bool set(const void* pointer) const { return pthread_setspecific(key_, pointer) == 0; }

 private:
  pthread_key_t key_;
};

/// For `Platform::callAtThreadEnd`. Ask for it at the installation: without a key it throws, as
/// `ThreadKey` does.
inline auto threadEndCaller() {
  static const ThreadKey key([](void* function) { reinterpret_cast<void (*)()>(function)(); });
  return [](void (*function)()) { return key.set(reinterpret_cast<const void*>(function)); };
}

}  // namespace veltrano::internal

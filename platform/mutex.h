// A mutex whose use Clang checks: what is GUARDED_BY it is used only under a `Lock` of it.
#pragma once

#include <mutex>

#ifdef __clang__
#define VELTRANO_CHECKED_BY_CLANG(attribute) __attribute__((attribute))
#else
#define VELTRANO_CHECKED_BY_CLANG(attribute)
#endif
/// Of a member: used only with this mutex held. Where Clang cannot check it, of a static local and
/// of a struct inside of what owns the mutex, a comment says so.
#define GUARDED_BY(mutex) VELTRANO_CHECKED_BY_CLANG(guarded_by(mutex))
/// Of a function: called only with this mutex held.
#define REQUIRES(mutex) VELTRANO_CHECKED_BY_CLANG(requires_capability(mutex))

namespace veltrano::internal {

class VELTRANO_CHECKED_BY_CLANG(capability("mutex")) Mutex {
 private:
  friend class Lock;

  std::mutex mutex_;
};

/// Holds a mutex as long as it lives, except between `unlock` and `lock`.
class VELTRANO_CHECKED_BY_CLANG(scoped_lockable) Lock {
 public:
  explicit Lock(Mutex& mutex) VELTRANO_CHECKED_BY_CLANG(acquire_capability(mutex))
      : lock_(mutex.mutex_) {}
  // NOLINTNEXTLINE(modernize-use-equals-default): Clang ignores the attribute without a body
  ~Lock() VELTRANO_CHECKED_BY_CLANG(release_capability()) {}
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  void unlock() VELTRANO_CHECKED_BY_CLANG(release_capability()) { lock_.unlock(); }
  void lock() VELTRANO_CHECKED_BY_CLANG(acquire_capability()) { lock_.lock(); }

  /// For a condition variable. Mark the predicate of a wait REQUIRES(mutex): Clang does not see
  /// that it runs with the mutex held.
  std::unique_lock<std::mutex>& standard() { return lock_; }

 private:
  std::unique_lock<std::mutex> lock_;
};

}  // namespace veltrano::internal

#include "platform/posix/threads/fork.h"

#include <pthread.h>

namespace veltrano::internal {

void watchForks() {
  static const int registered = pthread_atfork(nullptr, nullptr, [] { hasBeenForked.store(true); });
  static_cast<void>(registered);  // fails only when memory runs out; forks then go unnoticed
}

}  // namespace veltrano::internal

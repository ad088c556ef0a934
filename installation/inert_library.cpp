#include "installation/inert_library.h"

#include <pthread.h>

#include "platform/host_callback.h"

namespace veltrano::internal {

Library& inertLibrary() {
  static Library& inert = *new Library(Platform());
  return inert;
}

void makeForkedChildrenInert() {
  inertLibrary();  // a child cannot make it
  static const int registered = pthread_atfork(nullptr, nullptr, [] {
    inForkedChild = true;
    Library::exchangeCurrent(&inertLibrary());
  });
  static_cast<void>(registered);  // fails only if memory runs out; forks then go unnoticed
}

}  // namespace veltrano::internal

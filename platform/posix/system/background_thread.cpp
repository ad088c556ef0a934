#include "platform/posix/system/background_thread.h"

#include <pthread.h>
#include <signal.h>

#include <memory>
#include <string>
#include <utility>

#include "platform/host_callback.h"
#include "platform/posix/system/system.h"

namespace veltrano::internal {
namespace {

struct Start {
  std::string name;
  std::function<void()> body;
};

void* runThread(void* argument) {
  const std::unique_ptr<Start> start(static_cast<Start*>(argument));
  HostCode::isLibraryThread = true;
  nameThisThread(start->name.c_str());
  dropExceptions(start->body);  // losing this thread is better than ending the process
  return nullptr;
}

}  // namespace

bool startBackgroundThread(std::string_view name, std::function<void()> body) {
  auto start = std::make_unique<Start>(Start{std::string(name), std::move(body)});

  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);

  // A thread inherits its creator's signal mask.
  sigset_t blocked;
  sigset_t before;
  sigfillset(&blocked);
  for (const int fault : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP})
    sigdelset(&blocked, fault);
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
  pthread_t thread;
  const bool started = pthread_create(&thread, &attributes, runThread, start.get()) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_attr_destroy(&attributes);

  if (started) static_cast<void>(start.release());
  return started;
}

}  // namespace veltrano::internal

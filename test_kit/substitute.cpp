#include "test_kit/substitute.h"

#include <optional>
#include <utility>

#include "platform/host_callback.h"
#include "platform/posix/platform_backend.h"
#include "tracker/library.h"

namespace veltrano::internal {

struct Substitute::State {
  State(const Platform& platform, CallObserver& observer, TestBackend& backend)
      : library(platform, &observer) {
    setTestBackend(&backend);
    wasHostGone = callbacksDisabled.exchange(false);  // after a shutdown
    replaced = Library::exchangeCurrent(&library);
  }
  // The library is destroyed after this. If that runs the host's code, it finds the process's own.
  ~State() {
    Library::exchangeCurrent(replaced);
    setTestBackend(nullptr);
    callbacksDisabled = wasHostGone;
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  Library library;
  std::optional<Library> inert;  // after a shutdown
  Library* replaced = nullptr;
  bool wasHostGone = false;
};

Substitute::Substitute(const Platform& platform, CallObserver& observer, TestBackend& backend)
    : state_(std::make_unique<State>(platform, observer, backend)) {}

Substitute::~Substitute() = default;

void Substitute::setCollectionHost(std::string host) {
  state_->library.setCollectionHost(std::move(host));
}

Statistics Substitute::statistics() const {
  return state_->library.accounting().statistics();
}

void Substitute::shutDown() {
  state_->inert.emplace(Platform());
  state_->inert->accounting().restore(state_->library.accounting());
  Library::exchangeCurrent(&*state_->inert);
  state_->library.releaseCallbacks();
}

bool Substitute::isInCallback() noexcept {
  return HostCall::isOnThisThread();
}

const char* Substitute::version() noexcept {
  return VELTRANO_RELEASE;
}

}  // namespace veltrano::internal

#include "test_kit/substitute.h"

#include <optional>
#include <utility>

#include "installation/inert_library.h"
#include "installation/platform_backend.h"
#include "platform/host_callback.h"
#include "tracker/library.h"

namespace veltrano::internal {

struct Substitute::State {
  State(const Platform& platform, CallObserver& observer, Installer& installer)
      : library(platform, &observer) {
    makeForkedChildrenInert();
    replacedInstaller = Installer::exchangeCurrent(&installer);
    wasHostGone = callbacksDisabled.exchange(false);  // after a shutdown
    replaced = Library::exchangeCurrent(&library);
  }
  // The library is destroyed after this. If that runs the host's code, it finds the process's own.
  ~State() {
    if (isForkedChild()) return;
    Library::exchangeCurrent(replaced);
    Installer::exchangeCurrent(replacedInstaller);
    callbacksDisabled = wasHostGone;
  }

  Library library;
  std::optional<Library> inert;  // after a shutdown
  Library* replaced = nullptr;
  Installer* replacedInstaller = nullptr;
  bool wasHostGone = false;
};

Substitute::Substitute(const Platform& platform, CallObserver& observer, Installer& installer)
    : state_(std::make_unique<State>(platform, observer, installer)) {}

Substitute::~Substitute() = default;

void Substitute::configure(std::string collectionHost,
                           std::vector<std::string> withheldProperties) {
  state_->library.configure(std::move(collectionHost), std::move(withheldProperties));
}

Statistics Substitute::statistics() const {
  return state_->library.accounting().statistics();
}

FlushResult Substitute::lastFlush() const {
  return state_->library.lastFlush();
}

void Substitute::shutDown() {
  Library::replaceCurrent(state_->inert.emplace(Platform())).end();
}

bool Substitute::isInCallback() noexcept {
  return HostCall::isOnThisThread();
}

}  // namespace veltrano::internal

#include "platform/platform.h"

#include <atomic>

namespace veltrano {
namespace {

// Set once and never destroyed, so that threads may still use the platform while the process ends.
std::atomic<const Platform*> installed{nullptr};

// Makes `candidate` the platform if there is none yet.
bool installOnce(const Platform* candidate) {
  const Platform* none = nullptr;
  if (installed.compare_exchange_strong(none, candidate, std::memory_order_acq_rel)) return true;
  delete candidate;
  return false;
}

}  // namespace

bool installPlatform(const Platform& platform) {
  return installOnce(new Platform(platform));
}

const Platform& platform() {
  const Platform* current = installed.load(std::memory_order_acquire);
  if (current == nullptr) {
    installOnce(new Platform);
    current = installed.load(std::memory_order_acquire);
  }
  return *current;
}

}  // namespace veltrano

#include "platform/posix/system/system.h"

namespace veltrano::internal {

NetworkChanges::NetworkChanges() = default;

NetworkChanges::~NetworkChanges() = default;

bool NetworkChanges::wait() {
  return false;
}

}  // namespace veltrano::internal

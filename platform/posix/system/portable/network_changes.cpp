#include "platform/posix/system/system.h"

namespace veltrano::internal {

NetworkChanges::NetworkChanges() = default;

NetworkChanges::~NetworkChanges() = default;

bool NetworkChanges::wait() const {
  return false;
}

}  // namespace veltrano::internal

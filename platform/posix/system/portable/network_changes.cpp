#include "platform/posix/system/system.h"

namespace veltrano::internal {

NetworkChanges::NetworkChanges() = default;

NetworkChanges::~NetworkChanges() = default;

void NetworkChanges::clear() {}

}  // namespace veltrano::internal

#pragma once

#include <string>

namespace veltrano::internal {

/// One recorded event, kept as the JSON object that goes on the wire,
/// {"event": name, "properties": {...}}. It is encoded once, when it is recorded: that takes less
/// memory than the properties themselves, and uploads of the same event need not encode it again.
struct EventRecord {
  std::string json;  // empty when the properties cannot be encoded
};

}  // namespace veltrano::internal

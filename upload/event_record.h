#pragma once

#include <string>

namespace veltrano::internal {

/// One recorded event as JSON: {"event": name, "properties": {...}}. Encoding it once, when it is
/// recorded, takes less memory than keeping the properties and makes repeated uploads cheap.
struct EventRecord {
  std::string json;  // empty when the properties cannot be encoded
};

}  // namespace veltrano::internal

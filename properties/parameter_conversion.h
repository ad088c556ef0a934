#pragma once

#include <optional>

#include "properties/property_map.h"

namespace veltrano::internal {

/// Converts a host's values to members of the closed set and leaves out what events cannot hold.
/// Thread-safe.
class ParameterConversion {
 public:
  ParameterConversion() = delete;

  /// None when `value` is absent or events cannot hold it.
  static std::optional<SupportedParameterType> convert(const HostValue& value);

  /// None for an empty map; an empty map when all values are left out.
  static std::optional<PropertyMap> convert(const HostMap& dictionary);
};

}  // namespace veltrano::internal

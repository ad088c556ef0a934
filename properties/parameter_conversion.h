#pragma once

#include <optional>

#include "properties/property_map.h"
#include "veltrano/value.h"

namespace veltrano::internal {

/// Turns what a host hands in into members of the set, leaving out what cannot be represented.
/// Pure functions, safe on any thread.
class ParameterConversion {
 public:
  ParameterConversion() = delete;

  /// None when `value` is absent or cannot be represented.
  static std::optional<SupportedParameterType> convert(const HostValue& value);

  /// None for an empty map; a map all of whose values are left out gives an empty one.
  static std::optional<PropertyMap> convert(const HostMap& dictionary);
};

}  // namespace veltrano::internal

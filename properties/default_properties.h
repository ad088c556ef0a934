#pragma once

#include <optional>
#include <string>

#include "properties/property_map.h"

namespace veltrano {

/// The device and application properties that the library gathers by itself. Each value is computed
/// by its first reader, once in the process, and never changes; safe to read from any thread.
class DefaultProperties {
 public:
  DefaultProperties() = delete;

  /// What every event carries.
  static const PropertyMap& properties();

  /// The library's own version, or "unknown".
  static const std::string& libVersion();

  /// The host application's version, or "unknown".
  static const std::string& publisherVersion();

 private:
  static const std::string& deviceModel();
  static const std::optional<HostMap>& publisherInfoDict();
};

}  // namespace veltrano

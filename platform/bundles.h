#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "veltrano/value.h"

namespace veltrano::internal {

/// A directory of code and resources, and its Info dictionary.
struct Bundle {
  std::optional<std::string> resourceDirectory;  // a path; none when the bundle has no resources
  std::optional<HostMap> infoDictionary;
};

/// Finds bundles. Thread-safe.
class Bundles {
 public:
  virtual ~Bundles() = default;

  /// The host application's Info dictionary, if it has one.
  virtual std::optional<HostMap> mainInfoDictionary() const { return std::nullopt; }

  /// The bundle that contains this library.
  virtual Bundle libraryBundle() const { return {}; }

  /// The bundle at `path`, if there is one.
  virtual std::optional<Bundle> bundleAtPath(std::string_view /*path*/) const {
    return std::nullopt;
  }
};

}  // namespace veltrano::internal

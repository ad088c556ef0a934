#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "veltrano/value.h"

namespace veltrano::internal {

/// A directory of code and resources together with the Info dictionary that describes it.
struct Bundle {
  std::optional<std::string> resourceDirectory;  // a path; none when the bundle has no resources
  std::optional<HostMap> infoDictionary;
};

/// Finds bundles. Safe to call from any thread.
class Bundles {
 public:
  virtual ~Bundles() = default;

  /// The host application's Info dictionary; none when it has none.
  virtual std::optional<HostMap> mainInfoDictionary() const { return std::nullopt; }

  /// The bundle that contains this library.
  virtual Bundle libraryBundle() const { return {}; }

  /// Opens the bundle at `path`; none when there is no bundle there.
  virtual std::optional<Bundle> bundleAtPath(std::string_view /*path*/) const {
    return std::nullopt;
  }
};

}  // namespace veltrano::internal

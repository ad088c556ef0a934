#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/bundles.h"

namespace veltrano::internal {

/// Bundles are directories with an Info.plist.
class PosixBundles final : public Bundles {
 public:
  explicit PosixBundles(std::optional<HostMap> mainInfoDictionary);

  std::optional<HostMap> mainInfoDictionary() const override { return mainInfoDictionary_; }

  /// Its resources are in "veltrano" next to the shared library. Its Info dictionary is compiled
  /// in, and holds the version where there are no resources.
  Bundle libraryBundle() const override { return libraryBundle_; }

  std::optional<Bundle> bundleAtPath(std::string_view path) const override;

 private:
  const std::optional<HostMap> mainInfoDictionary_;
  const Bundle libraryBundle_;
};

}  // namespace veltrano::internal

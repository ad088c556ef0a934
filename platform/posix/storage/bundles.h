#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/bundles.h"

namespace veltrano::internal {

/// Bundles as directories that hold an Info.plist.
class PosixBundles final : public Bundles {
 public:
  explicit PosixBundles(std::optional<HostMap> mainInfoDictionary);

  std::optional<HostMap> mainInfoDictionary() const override { return mainInfoDictionary_; }

  /// Its resources are in "veltrano" beside the library or, when the library is part of a program,
  /// in "../lib/veltrano" from there.
  Bundle libraryBundle() const override { return libraryBundle_; }

  std::optional<Bundle> bundleAtPath(std::string_view path) const override;

 private:
  const std::optional<HostMap> mainInfoDictionary_;
  const Bundle libraryBundle_;
};

/// The dictionary in the property list at `path`; none when there is none.
std::optional<HostMap> readInfoDictionary(const std::string& path);

}  // namespace veltrano::internal

#include "properties/default_properties.h"

#include "encoding/numbers.h"
#include "properties/parameter_conversion.h"

namespace veltrano::internal {
namespace {

constexpr std::string_view kVersionKey = "CFBundleShortVersionString";
constexpr std::string_view kBuildNumberKey = "CFBundleVersion";

PropertyMap propertiesOf(const std::optional<HostMap>& dictionary) {
  if (!dictionary) return {};
  return ParameterConversion::convert(*dictionary).value_or(PropertyMap());
}

}  // namespace

PropertyMap DefaultProperties::gather() const {
  const ScreenSize screen = device_.mainScreenSize();
  HostMap properties = {
      {"$screen_height", truncatedInteger(screen.height)},
      {"$screen_width", truncatedInteger(screen.width)},
      {"$manufacturer", "Apple"},
      {"$model", deviceModel()},
      {"$os", device_.systemName()},
      {"$os_version", device_.systemVersion()},
      {"mp_lib", "swift"},
      {"lib_version", libVersion()},
  };
  if (const auto build = publisherInfoDict().text(kBuildNumberKey))
    properties.set("$app_build_number", *build);
  if (const auto version = publisherInfoDict().text(kVersionKey))
    properties.set("$app_version_string", *version);
  return ParameterConversion::convert(properties).value();
}

const PropertyMap& DefaultProperties::publisherInfoDict() const {
  return publisherInfoDict_.get([this] { return propertiesOf(bundles_.mainInfoDictionary()); });
}

std::string DefaultProperties::libVersion() const {
  const auto bundle = resourceBundle();
  if (!bundle) return "unknown";
  return propertiesOf(bundle->infoDictionary).text(kVersionKey).value_or("unknown");
}

const std::string& DefaultProperties::publisherVersion() const {
  return publisherVersion_.get(
      [this] { return publisherInfoDict().text(kVersionKey).value_or("unknown"); });
}

// The library's resource bundle; falls back to the library's own bundle. None without resources.
std::optional<Bundle> DefaultProperties::resourceBundle() const {
  Bundle library = bundles_.libraryBundle();
  if (!library.resourceDirectory) return std::nullopt;
  auto resources = bundles_.bundleAtPath(*library.resourceDirectory + "/Veltrano.bundle");
  return resources ? std::move(resources) : std::move(library);
}

}  // namespace veltrano::internal

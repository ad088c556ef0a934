#include "properties/default_properties.h"

#include "encoding/numbers.h"
#include "encoding/utf8.h"
#include "properties/parameter_conversion.h"

namespace veltrano::internal {
namespace {

constexpr std::string_view kVersionKey = "CFBundleShortVersionString";
constexpr std::string_view kBuildNumberKey = "CFBundleVersion";

// The value of `key` if it is text.
std::optional<std::string> textIn(const std::optional<HostMap>& dictionary, std::string_view key) {
  if (!dictionary) return std::nullopt;
  return ParameterConversion::convert(*dictionary).value_or(PropertyMap()).text(key);
}

}  // namespace

const PropertyMap& DefaultProperties::properties() const {
  return properties_.get([this] { return gather(); });
}

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
  if (const auto build = textIn(publisherInfoDict(), kBuildNumberKey))
    properties.set("$app_build_number", *build);
  if (const auto version = textIn(publisherInfoDict(), kVersionKey))
    properties.set("$app_version_string", *version);
  return ParameterConversion::convert(properties).value();
}

const std::string& DefaultProperties::deviceModel() const {
  return deviceModel_.get([this] { return wellFormedUTF8(device_.machine()); });
}

const std::optional<HostMap>& DefaultProperties::publisherInfoDict() const {
  return publisherInfoDict_.get([this] { return bundles_.mainInfoDictionary(); });
}

const std::string& DefaultProperties::libVersion() const {
  return libVersion_.get([this] {
    const auto bundle = resourceBundle();
    const auto version = bundle ? textIn(bundle->infoDictionary, kVersionKey) : std::nullopt;
    return version.value_or("unknown");
  });
}

const std::string& DefaultProperties::publisherVersion() const {
  return publisherVersion_.get(
      [this] { return textIn(publisherInfoDict(), kVersionKey).value_or("unknown"); });
}

// The library's resource bundle; falls back to the library's own bundle. None without resources.
std::optional<Bundle> DefaultProperties::resourceBundle() const {
  Bundle library = bundles_.libraryBundle();
  if (!library.resourceDirectory) return std::nullopt;
  auto resources = bundles_.bundleAtPath(*library.resourceDirectory + "/Veltrano.bundle");
  return resources ? std::move(resources) : std::move(library);
}

}  // namespace veltrano::internal

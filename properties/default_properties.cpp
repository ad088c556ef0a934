#include "properties/default_properties.h"

#include "encoding/numbers.h"
#include "encoding/utf8.h"
#include "platform/platform.h"

namespace veltrano {
namespace {

constexpr std::string_view kVersionKey = "CFBundleShortVersionString";
constexpr std::string_view kBuildNumberKey = "CFBundleVersion";

// The text under `key`, if that is what is there.
std::optional<std::string> textIn(const std::optional<HostMap>& dictionary, std::string_view key) {
  std::optional<std::string> text;
  if (!dictionary) return text;
  for (const HostMapEntry& entry : *dictionary) {
    if (entry.key != key) continue;
    const auto* member = entry.value.member();
    const auto* string = member != nullptr ? member->getIf<std::string>() : nullptr;
    text = string != nullptr ? std::optional(*string) : std::nullopt;
  }
  return text;
}

// The library's resource bundle; its own bundle when there is no resource bundle, and none when it
// has no resources at all.
std::optional<Bundle> resourceBundle() {
  Bundle library = platform().bundles->libraryBundle();
  if (!library.resourceDirectory) return std::nullopt;
  auto resources =
      platform().bundles->bundleAtPath(*library.resourceDirectory + "/Veltrano.bundle");
  return resources ? std::move(resources) : std::move(library);
}

PropertyMap gather(const std::string& deviceModel, const std::string& libVersion,
                   const std::optional<HostMap>& publisherInfo) {
  const Device& device = *platform().device;
  const ScreenSize screen = device.mainScreenSize();
  PropertyMap properties({
      {"$screen_height", truncatedInteger(screen.height)},
      {"$screen_width", truncatedInteger(screen.width)},
      {"$manufacturer", "Apple"},
      {"$model", deviceModel},
      {"$os", device.systemName()},
      {"$os_version", device.systemVersion()},
      {"mp_lib", "swift"},
      {"lib_version", libVersion},
  });
  if (auto build = textIn(publisherInfo, kBuildNumberKey))
    properties.set("$app_build_number", *std::move(build));
  if (auto version = textIn(publisherInfo, kVersionKey))
    properties.set("$app_version_string", *std::move(version));
  return properties;
}

}  // namespace

// Never destroyed: threads may still read them while the process ends.

const PropertyMap& DefaultProperties::properties() {
  static const auto& value =
      *new PropertyMap(gather(deviceModel(), libVersion(), publisherInfoDict()));
  return value;
}

const std::string& DefaultProperties::deviceModel() {
  static const auto& value = *new std::string(wellFormedUTF8(platform().device->machine()));
  return value;
}

const std::optional<HostMap>& DefaultProperties::publisherInfoDict() {
  static const auto& value = *new std::optional<HostMap>(platform().bundles->mainInfoDictionary());
  return value;
}

const std::string& DefaultProperties::libVersion() {
  static const auto& value = *[] {
    const auto bundle = resourceBundle();
    const auto version = bundle ? textIn(bundle->infoDictionary, kVersionKey) : std::nullopt;
    return new std::string(version.value_or("unknown"));
  }();
  return value;
}

const std::string& DefaultProperties::publisherVersion() {
  static const auto& value =
      *new std::string(textIn(publisherInfoDict(), kVersionKey).value_or("unknown"));
  return value;
}

}  // namespace veltrano

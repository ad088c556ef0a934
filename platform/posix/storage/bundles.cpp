#include "platform/posix/storage/bundles.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/posix/storage/files.h"
#include "platform/posix/storage/property_list.h"
#include "platform/posix/system/system.h"

namespace veltrano::internal {
namespace {

namespace fs = std::filesystem;

bool isDirectory(const fs::path& path) {
  std::error_code error;
  return fs::is_directory(path, error);
}

Bundle bundleIn(const fs::path& directory) {
  return {directory.string(), readInfoDictionary((directory / "Info.plist").string())};
}

Bundle findLibraryBundle() {
  const fs::path object = ownObject();
  if (object.empty()) return {};
  for (const char* place : {"veltrano", "../lib/veltrano"}) {
    const fs::path directory = (object.parent_path() / place).lexically_normal();
    if (isDirectory(directory)) return bundleIn(directory);
  }
  return {};
}

}  // namespace

PosixBundles::PosixBundles(std::optional<HostMap> mainInfoDictionary)
    : mainInfoDictionary_(std::move(mainInfoDictionary)), libraryBundle_(findLibraryBundle()) {}

std::optional<Bundle> PosixBundles::bundleAtPath(std::string_view path) const {
  const fs::path directory(path);
  if (!isDirectory(directory)) return std::nullopt;
  return bundleIn(directory);
}

std::optional<HostMap> readInfoDictionary(const std::string& path) {
  const FileContents file = readFile(path);
  if (!file.contents) return std::nullopt;
  const auto list = PropertyList::parse(*file.contents);
  if (!list) return std::nullopt;
  return list->entries();
}

}  // namespace veltrano::internal

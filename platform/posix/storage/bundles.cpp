#include "platform/posix/storage/bundles.h"

#include <dlfcn.h>
#include <sys/auxv.h>

#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/posix/storage/files.h"
#include "platform/posix/storage/property_list.h"

namespace veltrano::internal {
namespace {

namespace fs = std::filesystem;

// The file that this code was loaded from; empty if unknown.
fs::path ownObject() {
  static const char symbol = 0;
  Dl_info own = {};
  if (dladdr(&symbol, &own) == 0 || own.dli_fname == nullptr) return {};
  // For a program, dli_fname is argv[0], which need not be a path.
  Dl_info program = {};
  const auto* entry = reinterpret_cast<const void*>(getauxval(AT_ENTRY));
  const bool isProgram = dladdr(entry, &program) != 0 && program.dli_fbase == own.dli_fbase;
  std::error_code error;
  return fs::canonical(isProgram ? "/proc/self/exe" : own.dli_fname, error);
}

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

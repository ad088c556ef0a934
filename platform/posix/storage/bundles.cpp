#include "platform/posix/storage/bundles.h"

#include <dlfcn.h>

#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/posix/storage/files.h"
#include "platform/posix/storage/property_list.h"

namespace veltrano::internal {
namespace {

namespace fs = std::filesystem;

// "veltrano" next to the shared library. Where it does not exist, as in a program that contains the
// library, the bundle counts as empty.
fs::path resourceDirectory() {
  static const char symbol = 0;
  Dl_info own = {};
  const bool isKnown = dladdr(&symbol, &own) != 0 && own.dli_fname != nullptr;
  std::error_code error;
  return "/" / fs::canonical(isKnown ? own.dli_fname : "", error).parent_path() / "veltrano";
}

}  // namespace

PosixBundles::PosixBundles(std::optional<HostMap> mainInfoDictionary)
    : mainInfoDictionary_(std::move(mainInfoDictionary)),
      libraryBundle_{resourceDirectory().string(),
                     HostMap{{"CFBundleShortVersionString", VELTRANO_RELEASE}}} {}

std::optional<Bundle> PosixBundles::bundleAtPath(std::string_view path) const {
  const fs::path directory(path);
  std::error_code error;
  if (!fs::is_directory(directory, error)) return std::nullopt;
  const FileContents list = readFile((directory / "Info.plist").string());
  return Bundle{directory.string(), readPropertyList(list.contents.value_or(""))};
}

}  // namespace veltrano::internal

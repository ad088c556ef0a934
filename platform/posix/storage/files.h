#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace veltrano::internal {

/// What was found at a path. If it exists without contents, it could not be read.
struct FileContents {
  bool exists = false;
  std::optional<std::string> contents = {};
  bool lacksDescriptor = false;  // the process has none left, and the file is not to blame
};

/// Reads a regular file of up to 4 MiB, including files in /proc; anything else counts as
/// unreadable.
FileContents readFile(const std::string& path);

/// Where the symbolic link at `path` leads, even if nothing is there; otherwise `path` itself.
std::string linkTarget(const std::string& path);

/// Whether files can be created in a directory.
bool isWritable(const std::string& directory);

/// Replaces the file at `path` atomically and durably, keeping its permissions. False, without
/// changing the file, when that fails.
bool replaceFile(const std::string& path, std::string_view contents);

}  // namespace veltrano::internal

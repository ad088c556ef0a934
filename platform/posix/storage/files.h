#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <string_view>

namespace veltrano::internal {

/// Tells one state of a file from another without reading it.
struct FileStamp {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified = {};

  bool operator==(const FileStamp& other) const;
};

/// None when nothing is at `path`.
std::optional<FileStamp> stampOf(const std::string& path);

/// What was found at a path. Without contents, something is there that cannot be read, or nothing.
struct FileContents {
  bool exists = false;
  std::optional<std::string> contents;
};

/// Reads a regular file of up to 4 MiB, a kernel table among them; anything else counts as
/// unreadable.
FileContents readFile(const std::string& path);

/// Replaces the file at `path` as a whole and durably. The new file has the permissions of the old
/// one. False when that fails; the file is then as it was.
bool replaceFile(const std::string& path, std::string_view contents);

}  // namespace veltrano::internal

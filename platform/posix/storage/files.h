#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace veltrano {

/// What was found at a path. Without contents, something is there that cannot be read, or nothing.
struct FileContents {
  bool exists = false;
  std::optional<std::string> contents;
};

/// Reads a regular file of moderate size; anything else counts as unreadable.
FileContents readFile(const std::string& path);

/// Puts `contents` in the place of the file at `path`, as a whole and durably, with the permissions
/// that the file had. False when that fails; the file is then as it was.
bool replaceFile(const std::string& path, std::string_view contents);

}  // namespace veltrano

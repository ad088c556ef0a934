#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "tools/temporary_directory.h"

namespace veltrano::internal {

inline std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// A temporary directory.
class Directory : tools::TemporaryDirectory {
 public:
  Directory() : TemporaryDirectory("veltrano") {}

  std::string operator/(const std::string& name) const { return path() / name; }
  std::string write(const std::string& name, std::string_view text) const {
    std::filesystem::create_directories(std::filesystem::path(*this / name).parent_path());
    std::ofstream(*this / name) << text;
    return *this / name;
  }
};

}  // namespace veltrano::internal

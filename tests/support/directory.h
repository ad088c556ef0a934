#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace veltrano::internal {

inline std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// A temporary directory.
class Directory {
 public:
  Directory() { path_ = mkdtemp(path_.data()); }
  ~Directory() { std::filesystem::remove_all(path_); }

  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  std::string write(const std::string& name, std::string_view text) const {
    std::filesystem::create_directories(std::filesystem::path(*this / name).parent_path());
    std::ofstream(*this / name) << text;
    return *this / name;
  }

 private:
  std::string path_ = std::filesystem::temp_directory_path() / "veltrano-XXXXXX";
};

}  // namespace veltrano::internal

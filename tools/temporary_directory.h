#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace tools {

/// A directory that is removed with everything in it.
class TemporaryDirectory {
 public:
  /// Throws std::runtime_error on failure.
  explicit TemporaryDirectory(const std::string& name)
      : path_((std::filesystem::temp_directory_path() / (name + "-XXXXXX")).string()) {
    if (::mkdtemp(path_.data()) == nullptr)
      throw std::runtime_error("no temporary directory can be made");
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  std::filesystem::path path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace tools

#pragma once

#include <string_view>

namespace veltrano::internal {

/// The process's standard output. Thread-safe.
class StandardOutput {
 public:
  virtual ~StandardOutput() = default;

  /// Writes `line` and a line feed atomically: concurrent lines never mix.
  virtual void writeLine(std::string_view /*line*/) {}
};

}  // namespace veltrano::internal

#pragma once

#include <string_view>

namespace veltrano::internal {

/// The process's standard output. Safe to call from any thread.
class StandardOutput {
 public:
  virtual ~StandardOutput() = default;

  /// Writes `line` and a line feed in one piece: lines of concurrent callers never mix.
  virtual void writeLine(std::string_view /*line*/) {}
};

}  // namespace veltrano::internal

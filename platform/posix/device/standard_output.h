#pragma once

#include <functional>
#include <string_view>
#include <utility>

#include "platform/standard_output.h"

namespace veltrano::internal {

/// Writes to `stdout`, or to `sink` if there is one. Drops the sink's exceptions.
class PosixStandardOutput final : public StandardOutput {
 public:
  explicit PosixStandardOutput(std::function<void(std::string_view)> sink)
      : sink_(std::move(sink)) {}

  void writeLine(std::string_view line) override;

 private:
  const std::function<void(std::string_view)> sink_;
};

}  // namespace veltrano::internal

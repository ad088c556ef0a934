#pragma once

#include <string>

#include "veltrano/posix_platform.h"

namespace veltrano::internal {

/// Makes paths absolute and reads the Info dictionary. Returns why the options are invalid, in one
/// sentence; empty if they are valid. `needsFiles` is false in tests, which need no files.
std::string completeOptions(PosixOptions& options, bool needsFiles);

}  // namespace veltrano::internal

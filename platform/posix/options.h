#pragma once

#include <string>

#include "veltrano/posix_platform.h"

namespace veltrano::internal {

/// Makes paths absolute and reads the Info dictionary. Returns why the options are invalid, in one
/// sentence; empty if they are valid. Tests do not need the files (`needsFiles`).
std::string completeOptions(PosixOptions& options, bool needsFiles);

}  // namespace veltrano::internal

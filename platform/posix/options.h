#pragma once

#include <string>

#include "veltrano/posix_platform.h"

namespace veltrano::internal {

/// Makes paths absolute, sorts the withheld properties and reads the Info dictionary. Returns why
/// the options are invalid, in one sentence; empty if they are valid.
std::string completeOptions(PosixOptions& options);

/// The same for the files that complete options name.
std::string checkFiles(const PosixOptions& options);

}  // namespace veltrano::internal

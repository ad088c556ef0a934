#pragma once

#include <string>

namespace veltrano {

/// A new random (version 4) UUID as canonical text: 36 characters, upper case.
std::string randomUUID();

}  // namespace veltrano

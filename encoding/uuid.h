#pragma once

#include <array>
#include <string>

namespace veltrano::internal {

/// The version 4 UUID made of `random`, as canonical text: 36 characters, upper case.
std::string uuidText(std::array<unsigned char, 16> random);

}  // namespace veltrano::internal

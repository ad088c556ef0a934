#pragma once

#include <string>

#include "platform/random_source.h"

namespace veltrano {

/// The version 4 UUID made of `random`, as canonical text: 36 characters, upper case.
std::string uuidText(RandomBytes random);

}  // namespace veltrano

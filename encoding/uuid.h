#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace veltrano::internal {

/// The version 4 UUID made of `random`, as canonical text: 36 characters, upper case.
std::string uuidText(std::array<unsigned char, 16> random);

/// The canonical text of the UUID that `text` stands for; none when it stands for none.
std::optional<std::string> canonicalUUID(std::string_view text);

}  // namespace veltrano::internal

#pragma once

#include <optional>
#include <string_view>

#include "veltrano/value.h"

namespace veltrano::internal {

/// The entries of a property list in XML whose root is a dictionary: strings as text, everything
/// else as `OtherObject`, because callers only need strings. None when `text` is no such list, has
/// more than 100,000 elements or 64 levels, or declares entities. Throws `std::bad_alloc`.
std::optional<HostMap> readPropertyList(std::string_view text);

/// Whether `text` is a property list in the binary form, which is not read.
inline bool isBinaryPropertyList(std::string_view text) {
  return text.substr(0, 6) == "bplist";
}

}  // namespace veltrano::internal

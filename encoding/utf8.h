#pragma once

#include <string>
#include <string_view>

#include "encoding/eight_bytes.h"

namespace veltrano::internal {

/// Whether `text` is all ASCII. On the hot path: checks all text that a host passes.
inline bool isASCII(std::string_view text) {
  return !anyEightBytes(text, [](auto bytes) { return (bytes & 0x8080808080808080) != 0; });
}

/// `text` with each maximal ill-formed sequence replaced by U+FFFD.
std::string wellFormedUTF8(std::string_view text);

/// Calls `use` with `text` well-formed, without a copy when it is ASCII.
template <class Use>
void withWellFormed(std::string_view text, Use use) {
  if (isASCII(text))
    use(text);
  else
    use(std::string_view(wellFormedUTF8(text)));
}

}  // namespace veltrano::internal

#include "encoding/canonical_equivalence.h"

#include <utf8proc.h>

#include <cstdlib>
#include <memory>

namespace veltrano::internal {

std::string canonicalDecomposition(std::string_view text) {
  utf8proc_uint8_t* result = nullptr;
  const auto length =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                   static_cast<utf8proc_ssize_t>(text.size()), &result,
                   static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_DECOMPOSE));
  const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(result, &std::free);
  if (length < 0) return std::string(text);
  return std::string(reinterpret_cast<const char*>(result), static_cast<std::size_t>(length));
}

}  // namespace veltrano::internal

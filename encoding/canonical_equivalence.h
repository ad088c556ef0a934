#pragma once

#include <string>
#include <string_view>

namespace veltrano::internal {

/// The canonical decomposition of well-formed UTF-8. Two texts are canonically equivalent exactly
/// when their decompositions are the same bytes.
std::string canonicalDecomposition(std::string_view text);

}  // namespace veltrano::internal

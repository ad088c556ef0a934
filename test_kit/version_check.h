#pragma once

namespace veltrano::testing {

/// Throws `Error` unless the library is of the kit's own release: they share what changes between
/// releases.
void expectLibraryOfThisRelease();

}  // namespace veltrano::testing

#pragma once

namespace veltrano::testing {

/// Throws `Error` unless the library is of the kit's release. The interface between them changes
/// with each release.
void expectLibraryOfThisRelease();

}  // namespace veltrano::testing

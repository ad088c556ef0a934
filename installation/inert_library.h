#pragma once

#include "tracker/library.h"

namespace veltrano::internal {

/// The no-op library that replaces the process's own after a shutdown and in a forked child.
Library& inertLibrary();

/// Gives each forked child the inert library. The parent's has no threads there, and its locks may
/// be held forever.
void makeForkedChildrenInert();

}  // namespace veltrano::internal

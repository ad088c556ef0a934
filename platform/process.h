#pragma once

namespace veltrano {

/// True in a child that was forked from the process in which the library ran. There the library
/// does nothing: its threads do not exist, and its locks may be held for good. Costs one load.
bool isForkedChild() noexcept;

/// Called by the platform in such a child, before anything else there can call the library.
void becomeForkedChild() noexcept;

}  // namespace veltrano

#pragma once

#include <cxxabi.h>

namespace veltrano {

/// Calls `function`, which may run the host's code, and drops what it throws. The forced end of the
/// thread, by pthread_exit or pthread_cancel, is not an exception to drop and goes on.
template <class Function>
void callHost(Function&& function) {
  try {
    function();
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    // There is nobody to tell.
  }
}

}  // namespace veltrano

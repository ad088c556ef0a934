#pragma once

#include <utility>

namespace veltrano {

/// Calls into the host. Its exceptions end here: they are the host's own, and there is nobody on
/// the library's threads to take them.
template <class Callback, class... Arguments>
void callHost(const Callback& callback, Arguments&&... arguments) noexcept {
  try {
    callback(std::forward<Arguments>(arguments)...);
  } catch (...) {
  }
}

}  // namespace veltrano

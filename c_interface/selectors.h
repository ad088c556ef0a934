// Calls the library's operations, and its notification handlers, by selector.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <variant>

#include "c_interface/host_object.h"

namespace veltrano::internal {

/// The operation was called and returned this, or nil.
struct Done {
  Object returned;
};
struct NoSuchSelector {};
struct WrongNumberOfArguments {
  std::size_t expected = 0;
};
/// The zero-based index of the first argument with the wrong type.
struct WrongTypeOfArgument {
  std::size_t index = 0;
};
using SendResult = std::variant<Done, NoSuchSelector, WrongNumberOfArguments, WrongTypeOfArgument>;

/// Sends `selector` with its arguments to the tracker. Has no effect, and does not create the
/// tracker, unless it returns `Done`. Thread-safe.
SendResult send(std::string_view selector, std::span<const Object> arguments);

/// The number of arguments that `selector` takes; none when there is no such selector.
std::optional<std::size_t> argumentCount(std::string_view selector);

}  // namespace veltrano::internal

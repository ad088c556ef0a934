// The library for hosts that reach it by name: every public operation has an entry under its
// selector, and so have the handlers of notifications.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <variant>

#include "tracker/host_object.h"

namespace veltrano::internal {

/// The operation has been called; it returned this, or nil.
struct Done {
  Object returned;
};
struct NoSuchSelector {};
struct WrongNumberOfArguments {
  std::size_t expected = 0;
};
/// The first argument that the operation does not take, counted from 0.
struct WrongTypeOfArgument {
  std::size_t index = 0;
};
using SendResult = std::variant<Done, NoSuchSelector, WrongNumberOfArguments, WrongTypeOfArgument>;

/// Sends `selector` with its arguments to the tracker, which the first message that fits makes; one
/// that does not fit changes nothing. From any thread.
SendResult send(std::string_view selector, std::span<const Object> arguments);

/// How many arguments `selector` takes; none when there is no such selector.
std::optional<std::size_t> argumentCount(std::string_view selector);

}  // namespace veltrano::internal

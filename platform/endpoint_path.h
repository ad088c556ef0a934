#pragma once

#include <cstddef>
#include <iterator>
#include <optional>
#include <string_view>

namespace veltrano::internal {

/// The paths of the collection host that the library posts to. They do not affect each other.
enum class EndpointPath { track, heartbeat };

inline constexpr EndpointPath kEndpointPaths[] = {EndpointPath::track, EndpointPath::heartbeat};

/// For arrays with one element per path.
inline constexpr std::size_t kEndpointPathCount = std::size(kEndpointPaths);
constexpr std::size_t indexOf(EndpointPath path) {
  return static_cast<std::size_t>(path);
}

constexpr std::string_view text(EndpointPath path) {
  switch (path) {
    case EndpointPath::track:
      return "/track";
    case EndpointPath::heartbeat:
      return "/heartbeat";
  }
  return {};
}

constexpr std::optional<EndpointPath> endpointPath(std::string_view name) {
  for (const EndpointPath path : kEndpointPaths)
    if (text(path) == name) return path;
  return std::nullopt;
}

}  // namespace veltrano::internal

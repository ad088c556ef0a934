#pragma once

#include <optional>
#include <string>

namespace veltrano::internal {

/// The parts of a URL; an empty one is absent. An IPv6 address is in brackets.
struct URLParts {
  std::string user, host, port, path, query, fragment;
};

/// None if libcurl takes `url` for no URL. Without a scheme it is a proxy's, which is "http" then.
/// Throws std::bad_alloc.
std::optional<URLParts> partsOf(const std::string& url);

}  // namespace veltrano::internal

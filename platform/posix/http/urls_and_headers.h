#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltrano::internal {

/// The parts of a URL; an empty one is absent. An IPv6 address is in brackets.
struct URLParts {
  std::string user, host, port, path, query, fragment;
};

/// None if libcurl takes `url` for no URL. Without a scheme it is a proxy's, which is "http" then.
/// Throws std::bad_alloc.
std::optional<URLParts> partsOf(const std::string& url);

/// Appends percent-encoded `parameters` as the query of `baseURL`, which has none.
std::string urlWithQuery(std::string_view baseURL,
                         const std::map<std::string, std::string>& parameters);

/// `headers` as lines for libcurl. Characters that could end a line, inject a header or make the
/// request invalid are removed, and so is a header without a name left. Empty values are kept.
std::vector<std::string> headerLines(const std::map<std::string, std::string>& headers);

}  // namespace veltrano::internal

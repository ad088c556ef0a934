#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace veltrano::internal {

/// `baseURL`, which has no query, with one made of `parameters`, percent-encoded. Without
/// parameters it stays as it is.
std::string urlWithQuery(std::string_view baseURL,
                         const std::map<std::string, std::string>& parameters);

/// `headers` as libcurl takes them, one line each. Characters that could end a line, forge a header
/// or make the request invalid are left out; so is a header that then has no name. An empty value
/// is kept.
std::vector<std::string> headerLines(const std::map<std::string, std::string>& headers);

}  // namespace veltrano::internal

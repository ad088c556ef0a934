#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace veltrano::internal {

/// Appends percent-encoded `parameters` as the query of `baseURL`, which has none.
std::string urlWithQuery(std::string_view baseURL,
                         const std::map<std::string, std::string>& parameters);

/// `headers` as lines for libcurl. Characters that could end a line, inject a header or make the
/// request invalid are removed, and so is a header without a name left. Empty values are kept.
std::vector<std::string> headerLines(const std::map<std::string, std::string>& headers);

}  // namespace veltrano::internal

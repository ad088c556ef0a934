#pragma once

#include <map>
#include <string>
#include <string_view>

namespace veltrano {

/// `baseURL`, which has no query, with one made of `parameters`, percent-encoded. Without
/// parameters it stays as it is.
std::string urlWithQuery(std::string_view baseURL,
                         const std::map<std::string, std::string>& parameters);

}  // namespace veltrano

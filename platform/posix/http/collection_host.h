#pragma once

#include <string_view>

namespace veltrano {

/// Whether `text` is a host, or a host and a port: "example.com", "10.0.0.1:8443", "[::1]:80".
bool isCollectionHost(std::string_view text);

}  // namespace veltrano

// Checks of what a host may configure about the network.
#pragma once

#include <string_view>

namespace veltrano::internal {

/// Whether `text` is a host, or a host and a port: "example.com", "10.0.0.1:8443", "[::1]:80".
bool isCollectionHost(std::string_view text);

/// Whether `text` is "http://" followed by a host and a port.
bool isProxy(std::string_view text);

/// Whether `text` is one or more SHA-256 digests in Base64, each as "sha256//DIGEST", separated by
/// semicolons.
bool isPublicKeyPin(std::string_view text);

}  // namespace veltrano::internal

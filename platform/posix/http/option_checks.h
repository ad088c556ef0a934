// Validates a host's network options.
#pragma once

#include <string>
#include <string_view>

namespace veltrano::internal {

/// Whether `text` is a host, or a host and a port: "example.com", "10.0.0.1:8443", "[::1]:80".
bool isCollectionHost(const std::string& text);

/// Whether the first certificate in `pem` can be parsed.
bool holdsCertificate(const std::string& pem);

/// Whether `text` is "http://" followed by a host and a port, possibly with "user:password@" before
/// them.
bool isProxy(const std::string& text);

/// Whether `text` is one or more "sha256//DIGEST", separated by semicolons, with Base64 digests.
bool isPublicKeyPin(std::string_view text);

}  // namespace veltrano::internal

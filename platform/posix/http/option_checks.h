// Validates a host's network options.
#pragma once

#include <string>
#include <string_view>

namespace veltrano::internal {

/// Whether `text` is a host, or a host and a port: "example.com", "10.0.0.1:8443", "[::1]:80".
bool isCollectionHost(std::string_view text);

/// Whether `pem` holds certificates as libcurl loads them: at least one, and none that is
/// malformed.
bool holdsCertificates(const std::string& pem);

/// Whether `text` is "http://" followed by a host and a port.
bool isProxy(std::string_view text);

/// Whether `text` is one or more "sha256//DIGEST", separated by semicolons, with Base64 digests.
bool isPublicKeyPin(std::string_view text);

}  // namespace veltrano::internal

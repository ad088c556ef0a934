#pragma once

#include <optional>
#include <string>

namespace veltrano::internal {

/// A name that libcurl must not look up itself: it would start a thread per lookup and leak it when
/// the lookup hangs.
struct HostName {
  std::string host;
  std::string port;

  /// The start of an entry for CURLOPT_RESOLVE, which the addresses complete.
  std::string key() const { return host + ':' + port + ':'; }
};

/// The host of `url`, with `defaultPort` if it has no port. None when libcurl looks nothing up: for
/// an IPv6 address, and when `url` is not a URL.
std::optional<HostName> hostNameIn(const std::string& url, const char* defaultPort);

/// The address that the name is itself, if it is one; else empty.
std::string literalAddress(const HostName& name);

/// The addresses, separated by commas; empty when the lookup failed. Blocks as long as the system's
/// resolver.
std::string addressesOf(const HostName& name);

}  // namespace veltrano::internal

#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>

namespace veltrano::internal {

/// Looks up host names on the calling thread. libcurl would start a thread per lookup and leak it
/// when the lookup hangs. Not thread-safe.
class NameLookup {
 public:
  /// The addresses of the host of `url` as "host:port:address,...", for CURLOPT_RESOLVE.
  /// `defaultPort` is used when the URL has no port. Empty when libcurl needs no lookup: for an
  /// IPv6 address, and when `url` is not a URL. None when the lookup failed. Blocks as long as the
  /// system's resolver.
  ///
  /// Caches addresses for a minute, and longer while the next lookup fails.
  std::optional<std::string> addresses(const std::string& url, const char* defaultPort);

 private:
  using Clock = std::chrono::steady_clock;
  struct Known {
    std::string addresses;
    Clock::time_point since;
  };

  std::map<std::string, Known> known_;  // by "host:port:"
};

}  // namespace veltrano::internal

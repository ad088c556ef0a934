#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>

namespace veltrano::internal {

/// Looks up host names on the calling thread, in place of libcurl, which would start a thread for
/// each lookup and leave it behind when the lookup does not end. For one thread.
class NameLookup {
 public:
  /// The addresses of the host of `url`, in the form "host:port:address,...", which libcurl takes.
  /// `defaultPort` is that of a URL that names none. Empty when libcurl needs none: for an IPv6
  /// address, and for what is not a URL. None when the lookup failed. Blocks for as long as the
  /// system's resolver does.
  ///
  /// Looks a name up again after a minute; when that fails the former addresses count.
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

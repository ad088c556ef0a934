// The faults that the collector injects on request.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace collector {

/// How requests are answered. The default is the normal answer.
struct Fault {
  std::optional<int> status;
  std::chrono::milliseconds latency{0};
  bool drop = false;      // closes the connection instead of answering
  bool truncate = false;  // closes the connection in the middle of the body
  std::optional<std::string> body;
  std::optional<std::string> retryAfter;
  bool accept = true;                  // counts and reports the request, whatever the answer
  std::optional<std::uint64_t> count;  // for this many requests; absent: until replaced
  std::string description;             // as parsed: a JSON object without the count
};

/// The pending faults of each path, the next one first.
using FaultsByPath = std::map<std::string, std::deque<Fault>>;

/// Parses a JSON object, or an array of them, as faults. An object with only a path clears that
/// path's faults. Throws std::invalid_argument with a message.
FaultsByPath parseFaults(std::string_view json);

/// The faults as a JSON array that `parseFaults` accepts.
std::string faultsJSON(const FaultsByPath& faults);

/// Removes and returns the fault for the next request to `path`.
Fault takeFault(FaultsByPath& faults, const std::string& path);

}  // namespace collector

// How the collector misbehaves on request.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace collector {

/// How requests are answered while it lasts. Without any member set, as usual.
struct Fault {
  std::optional<int> status;
  std::chrono::milliseconds latency{0};
  bool drop = false;      // the connection is closed instead of an answer
  bool truncate = false;  // the connection is closed amid the answer's body
  std::optional<std::string> body;
  std::optional<std::string> retryAfter;
  bool accept = true;                  // the request counts, however it is answered
  std::optional<std::uint64_t> count;  // for so many requests, else until changed
};

/// The faults to come for each path, the next one first.
using FaultsByPath = std::map<std::string, std::deque<Fault>>;

/// Reads the faults that a JSON object, or an array of them, describes. An object of nothing but a
/// path stands for no fault there. Throws std::invalid_argument, saying why.
FaultsByPath parseFaults(std::string_view json);

/// The JSON object that a text like "path=/track,status=503,count=2,drop" stands for. What follows
/// "body=" belongs to it to the end.
std::string faultJSON(std::string_view text);

/// What the next request to the path meets.
Fault takeFault(FaultsByPath& faults, const std::string& path);

}  // namespace collector

// Reports accepted requests.
#pragma once

#include <chrono>
#include <string>

#include "tools/collector/wire_check.h"

namespace collector {

/// One JSON object on one line: path, uid, headers, body, the time of receipt in milliseconds since
/// 1970, and the status of the answer (0: none).
std::string jsonLine(const httplib::Request& request, const WireMessage& message,
                     std::chrono::system_clock::time_point received, int answer);

/// A line for each event, or for the heartbeat, with the properties that the host added.
std::string readableLines(const httplib::Request& request, const WireMessage& message,
                          const Violations& violations);

}  // namespace collector

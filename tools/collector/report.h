// What the collector writes about the requests that it accepted.
#pragma once

#include <chrono>
#include <string>

#include "tools/collector/wire_check.h"

namespace collector {

/// One JSON object on one line: path, uid, headers, body, when it was received, in milliseconds
/// since 1970, and the status of its answer, 0 when there is none.
std::string jsonLine(const WireRequest& request, const WireMessage& message,
                     std::chrono::system_clock::time_point received, int answer);

/// A line for each event, or one for the heartbeat, with what the host put in it.
std::string readableLines(const WireRequest& request, const WireMessage& message);

}  // namespace collector

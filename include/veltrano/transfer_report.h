// What `PosixOptions::onTransfer` receives. Hosts include posix_platform.h.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace veltrano {

/// One attempt to send something to the collection host.
struct TransferReport {
  std::string path;                      // "/track" or "/heartbeat"
  int attempt = 1;                       // counts from 1 for each request
  std::chrono::microseconds duration{};  // of the name lookup, the connection and the exchange
  std::uint64_t bytesSent = 0;           // heads and bodies, before encryption
  std::uint64_t bytesReceived = 0;
  int status = 0;          // of the response; 0 without one. 200 is a delivery; 400 drops the batch
  std::string reason;      // why there is no complete response, in words; empty if there is one
  bool willRetry = false;  // of this request; if false, events wait for the next flush

  /// Set when this attempt begins a rest: requests to the path are put off until then.
  std::optional<std::chrono::system_clock::time_point> putOffUntil;
};

}  // namespace veltrano

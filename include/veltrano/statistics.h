// Counts of events, uploads and heartbeats.
#pragma once

#include <cstdint>

namespace veltrano {

/// Counts since the library was first used. Each snapshot is consistent:
/// `recorded == waiting + inFlight + delivered + dropped()`.
///
/// An event counts as recorded when it joins the queue; events tracked during an upload join when
/// the upload ends. Calls dropped before that count as recorded, too.
struct Statistics {
  std::uint64_t recorded = 0;

  std::uint64_t waiting = 0;    // for the next upload
  std::uint64_t inFlight = 0;   // in the current upload
  std::uint64_t delivered = 0;  // accepted by the collection host

  std::uint64_t droppedByTrimming = 0;      // the oldest, when more than 200 waited
  std::uint64_t droppedAsRefused = 0;       // with a batch answered with status 400
  std::uint64_t droppedAsNotEncodable = 0;  // with a batch that JSON cannot represent
  std::uint64_t droppedForMemory = 0;       // memory ran out while recording or sending
  std::uint64_t droppedByShutDown = 0;      // left when the library was shut down, recorded or not
  std::uint64_t droppedByBacklog = 0;  // calls without a completion, when 64 MiB of calls waited

  std::uint64_t dropped() const {
    return droppedByTrimming + droppedAsRefused + droppedAsNotEncodable + droppedForMemory +
           droppedByShutDown + droppedByBacklog + droppedByOptOut;
  }

  /// An upload is one request with all its retries. One that is in progress counts as attempted.
  std::uint64_t uploadsAttempted = 0;
  std::uint64_t uploadsSucceeded = 0;          // answered with status 200
  std::uint64_t uploadsFailedInTransport = 0;  // got no response
  std::uint64_t uploadsFailedByStatus = 0;     // answered with another status
  std::uint64_t uploadsFailedForMemory = 0;    // not sent, because memory ran out
  std::uint64_t uploadsPutOff = 0;             // not sent, to spare the server

  std::uint64_t heartbeatsSent = 0;    // also those that memory did not suffice to build
  std::uint64_t heartbeatsFailed = 0;  // of those sent: not accepted, or not built
  std::uint64_t heartbeatsPutOff = 0;  // of those sent: not attempted, to spare the server

  /// Waiting, or in an upload that then failed, when `setCollecting(false)` was called.
  std::uint64_t droppedByOptOut = 0;
};

}  // namespace veltrano

// What became of events, uploads and heartbeats.
#pragma once

#include <cstdint>

namespace veltrano {

/// Counts since the library was first used, taken at one moment: then
/// `recorded == waiting + inFlight + delivered + dropped()`.
///
/// An event counts as recorded when it joins the queue, which a call of `track` that is made while
/// an upload is under way does only afterwards.
struct Statistics {
  std::uint64_t recorded = 0;

  std::uint64_t waiting = 0;    // for an upload
  std::uint64_t inFlight = 0;   // in the upload under way
  std::uint64_t delivered = 0;  // accepted by the collection host

  std::uint64_t droppedByTrimming = 0;      // the oldest, when too many waited
  std::uint64_t droppedAsRefused = 0;       // with a batch that the host called bad, status 400
  std::uint64_t droppedAsNotEncodable = 0;  // with a batch that JSON cannot hold
  std::uint64_t droppedForMemory = 0;       // there was not enough to record or to send them

  std::uint64_t dropped() const {
    return droppedByTrimming + droppedAsRefused + droppedAsNotEncodable + droppedForMemory;
  }

  /// An upload is one request with all its retries. One of those attempted may be under way.
  std::uint64_t uploadsAttempted = 0;
  std::uint64_t uploadsSucceeded = 0;          // answered with status 200
  std::uint64_t uploadsFailedInTransport = 0;  // not answered
  std::uint64_t uploadsFailedByStatus = 0;     // answered with another status
  std::uint64_t uploadsFailedForMemory = 0;    // never sent

  std::uint64_t heartbeatsSent = 0;
  std::uint64_t heartbeatsFailed = 0;  // of those sent
};

}  // namespace veltrano

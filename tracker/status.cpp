#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "tracker/library.h"

namespace veltrano::internal {
namespace {

std::string secondsText(Duration duration) {
  const auto whole = std::chrono::ceil<std::chrono::seconds>(duration).count();
  return std::to_string(std::max<std::int64_t>(whole, 0)) + " s";
}

std::string putOff(std::uint64_t count) {
  return count > 0 ? ", " + std::to_string(count) + " put off" : "";
}

std::string counts(const Statistics& now) {
  std::string text = "Events: " + std::to_string(now.recorded) + " recorded";
  const std::pair<std::uint64_t, const char*> parts[] = {
      {now.waiting, "waiting"},
      {now.inFlight, "in flight"},
      {now.delivered, "delivered"},
      {now.droppedByTrimming, "dropped, because more than 200 waited"},
      {now.droppedAsRefused, "dropped, because the collection host answered with status 400"},
      {now.droppedAsNotEncodable, "dropped, because JSON cannot represent them"},
      {now.droppedForMemory, "dropped, because memory ran out"},
      {now.droppedByShutDown, "dropped, because the library was shut down"},
      {now.droppedByBacklog, "dropped, because 64 MiB of calls waited for an upload to end"},
      {now.droppedByOptOut, "dropped, because collecting was switched off"},
  };
  for (const auto& [count, what] : parts)
    if (count > 0) text += "; " + std::to_string(count) + " " + what;
  const std::uint64_t failed =
      now.uploadsFailedInTransport + now.uploadsFailedByStatus + now.uploadsFailedForMemory;
  return text + "\nUploads: " + std::to_string(now.uploadsAttempted) + " attempted, " +
         std::to_string(failed) + " failed" + putOff(now.uploadsPutOff) +
         "\nHeartbeats: " + std::to_string(now.heartbeatsSent) + " sent, " +
         std::to_string(now.heartbeatsFailed) + " failed" + putOff(now.heartbeatsPutOff) + "\n";
}

// Without `now`, does not say how long ago they ended.
std::string describe(const LastRequests& requests, std::optional<Duration> now) {
  std::string lines;
  for (const EndpointPath path : kEndpointPaths) {
    const auto& request = requests[indexOf(path)];
    if (!request) continue;
    lines.append("Last request to ").append(text(path)) += ": ";
    if (request->status) lines += "status " + std::to_string(*request->status);
    if (request->status && !request->reason.empty()) lines += ", ";
    lines += request->reason;
    if (now) lines += ", " + secondsText(*now - request->endedAt) + " ago";
    lines += "\n";
  }
  return lines.empty() ? "Last request: none has ended yet\n" : lines;
}

std::string reason(RestCause cause) {
  switch (cause) {
    case RestCause::server:
      return "because the collection host asked for it";
    case RestCause::trouble:
      return "because several failed in a row";
  }
  return {};
}

std::string rests(ZKURLSessionManager& session) {
  std::string lines;
  for (const EndpointPath path : kEndpointPaths)
    if (const auto rest = session.restOf(path))
      lines.append("Requests to ").append(text(path)) +=
          ": put off for " + secondsText(rest->left) + ", " + reason(rest->cause) + "\n";
  return lines;
}

}  // namespace

std::string Library::status() {
  if (isForkedChild())
    return "Nothing is sent: this process was forked after the platform was installed.\n";
  Library* const library = installed();
  if (library != nullptr && library->predecessor_ != nullptr)
    return "Nothing is sent: the library was shut down.\n" +
           counts(library->accounting().statistics()) +
           describe(library->accounting().lastRequests(), std::nullopt);
  if (library == nullptr || library->platform_.collectionHost.empty())
    return "Nothing is sent: no platform was installed before the first use of the library; the "
           "error of the installation says why.\n";

  library->tracker_.readCalls();
  const Duration now = library->platform_.wallClock->elapsed();
  const Statistics statistics = library->accounting_.statistics();
  std::string text = "Collection host: " + library->platform_.collectionHost + "\n" +
                     counts(statistics) + describe(library->accounting_.lastRequests(), now) +
                     rests(*library->platform_.urlSession) + "Next flush: ";
  if (!library->tracker_.isCollecting()) {
    text += "when collecting is switched on";
  } else if (const auto due = library->tracker_.nextFlush()) {
    text += "in " + secondsText(*due - now);
  } else if (statistics.inFlight > 0) {
    text += "after the upload in progress";
  } else {
    text += !library->isStarted_ ? "when the library is first used"
            : library->tracker_.isInBackground()
                ? "when the application returns to the foreground"
                : "with the next event";  // memory ran out, or the host ended the thread
  }
  return text + "\n";
}

}  // namespace veltrano::internal

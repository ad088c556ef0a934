#include <exception>
#include <utility>

#include "platform/host_callback.h"
#include "platform/simulated/trace_text.h"
#include "test_kit/implementation.h"
#include "test_kit/json.h"
#include "upload/rules/retry.h"

namespace veltrano::testing {

using namespace internal;

Answer World::Implementation::choose(const PostRequest& post, bool isPutOff) {
  recorder_.addPost(post);
  if (isPutOff) {
    Answer failure = transportError();  // to a replay, which has no rests
    recorder_.addAnswer(post.path(), failure);
    return failure;
  }
  URLRequest sent{post.baseURL, post.headerParameters};
  if (post.interceptor != nullptr) dropExceptions([&] { post.interceptor->intercept(sent); });
  Request request{post.path(), post.qsParameters, std::move(sent.headers),
                  jsonInBody(post.httpBody), now()};
  const auto path = *endpointPath(request.path);
  Answer answer;
  switch (path) {
    case EndpointPath::track:
      beginBatch(request.body);
      break;
    case EndpointPath::heartbeat:
      heartbeats.emplace_back(propertiesIn(request.body), now());
      answer.body = "{}";
      break;
  }
  const auto fail = [&](const std::string& why) {
    complain("The answer to a post could not be made: " + why);
    answer = transportError();
  };
  try {
    const HostCall call;
    answer = networks[indexOf(path)].answerTo(request).value_or(answer);
  } catch (const std::exception& exception) {
    fail(exception.what());
  } catch (...) {
    fail("its rule threw.");
  }
  // As in production; without retries, because the server may have begun to work on the request.
  constexpr Duration kLimit = RequestLimits().attemptTimeout;
  if (answer.latency > kLimit) {
    answer = transportError();
    answer.latency = kLimit;
    answer.reason = "Operation timed out after 30000 milliseconds with 0 bytes received";
  }
  recorder_.addAnswer(request.path, answer);
  requests.push_back(std::move(request));
  return answer;
}

// An upload contains all recorded events except those that the queue has dropped since.
void World::Implementation::beginBatch(std::string_view body) {
  std::size_t position = 1;  // after the opening bracket
  auto event = waiting_.begin();
  while (event != waiting_.end() && position < body.size()) {
    if (body.substr(position, event->json.size()) == event->json) {
      position += event->json.size() + 1;  // and the comma
      ++event;
    } else {
      trimmed_.push_back(std::move(event->name));
      event = waiting_.erase(event);
    }
  }
  batch_ = static_cast<std::size_t>(event - waiting_.begin());
}

void World::Implementation::arrive(const WorldNetwork::PendingPost& post, const Answer& answer,
                                   std::optional<Rest> rest) {
  if (onTransfer_) {
    TransferReport report;
    report.path = text(post.path);
    report.duration = now() - post.at;
    report.bytesSent = post.bytes;
    if (answer.isTransportError) {
      report.reason = answer.reason;
    } else {
      report.bytesReceived = answer.body.value_or("").size();
      report.status = answer.status;
    }
    if (rest)
      report.putOffUntil = std::chrono::system_clock::time_point(
          std::chrono::duration_cast<std::chrono::system_clock::duration>(
              simulated_.clock.now().sinceEpoch + rest->left));
    callHost([&] { watched("onTransfer", [&] { onTransfer_(report); }); });
  }
  if (post.path != EndpointPath::track || answer.isTransportError) return;
  if (answer.status != 200 && answer.status != 400) return;
  const auto end = waiting_.begin() + static_cast<std::ptrdiff_t>(batch_);
  std::vector<std::string> names;
  for (auto event = waiting_.begin(); event != end; ++event) {
    names.push_back(event->name);
    if (answer.status == 200)
      delivered.emplace_back(std::move(event->name), propertiesIn(event->json),
                             std::move(event->origins), event->at);
  }
  if (answer.status == 400)
    complain("The collection host called a batch bad, with status 400, and it was dropped: " +
             joined(names));
  waiting_.erase(waiting_.begin(), end);
  batch_ = 0;
}

}  // namespace veltrano::testing

#include "platform/simulated/simulated_url_session.h"

#include <utility>

namespace veltrano::internal {

void SimulatedURLSession::postData(PostRequest request, URLSessionCallback callback) {
  onPost(request);
  const SimulatedAnswer answer = answers[request.path()];
  timeline_.schedule(answer.latency, [answer, callback = std::move(callback)] {
    switch (answer.form) {
      case SimulatedAnswer::Form::http:
        return callback(answer.body, URLResponse{answer.status}, std::nullopt);
      case SimulatedAnswer::Form::transportError:
        return callback(std::nullopt, std::nullopt, TransportError{"simulated"});
      case SimulatedAnswer::Form::notHTTP:
        return callback(answer.body, URLResponse{}, std::nullopt);
    }
  });
}

}  // namespace veltrano::internal

#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "platform/simulated/timeline.h"
#include "platform/url_session.h"

namespace veltrano::internal {

/// How posts to one path are answered.
struct SimulatedAnswer {
  enum class Form { http, transportError, notHTTP };

  Form form = Form::http;
  int status = 200;
  std::optional<std::string> body = std::nullopt;
  Duration latency = std::chrono::milliseconds(50);
};

/// A scripted network. It chooses the answer when a request is posted.
class SimulatedURLSession final : public ZKURLSessionManager {
 public:
  explicit SimulatedURLSession(Timeline& timeline) : timeline_(timeline) {}

  void postData(PostRequest request, URLSessionCallback callback) override;

  std::map<std::string, SimulatedAnswer> answers;  // by the path of the URL
  std::function<void(const PostRequest&)> onPost = [](const PostRequest&) {};

 private:
  Timeline& timeline_;
};

}  // namespace veltrano::internal

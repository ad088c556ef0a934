// Posts through a PosixURLSession and waits for the outcome.
#pragma once

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "platform/host_callback.h"
#include "platform/posix/http/url_session.h"
#include "tests/support/tls_server.h"

namespace veltrano::internal {

struct Outcome {
  std::optional<std::string> data;
  std::optional<URLResponse> response;
  std::optional<TransportError> error;
  bool mayCallHost = HostCode::mayRunHere;
  std::thread::id calledOn = std::this_thread::get_id();

  int status() const { return response ? response->httpStatusCode.value_or(0) : 0; }
  bool isTransportError() const { return error && !error->reason.empty() && !data && !response; }
};

inline std::future<Outcome> start(PosixURLSession& session, PostRequest request) {
  auto promise = std::make_shared<std::promise<Outcome>>();
  session.postData(std::move(request), [promise](auto data, auto response, auto error) {
    promise->set_value({std::move(data), response, error});
  });
  return promise->get_future();
}

inline Outcome post(PosixURLSession& session, PostRequest request) {
  return start(session, std::move(request)).get();
}

/// The same through a session of its own.
inline Outcome post(const URLSessionOptions& options, PostRequest request) {
  PosixURLSession session(options);
  return post(session, std::move(request));
}

inline URLSessionOptions trusting(const std::string& authorities) {
  return {.certificateAuthorities = authorities, .firstBackOff = std::chrono::milliseconds(1)};
}

inline PostRequest requestTo(const std::string& url) {
  PostRequest request;
  request.baseURL = url;
  request.httpBody = "data=W10=";
  return request;
}

inline TLSReply answer(const std::string& status, const std::string& body = "",
                       const std::string& head = "") {
  return {.bytes = "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
                   "\r\n" + head + "\r\n" + body};
}

inline TLSReply accept(int) {
  return answer("200 OK");
}

template <class Function>
std::shared_ptr<const ZKInterceptor> interceptor(Function function) {
  struct FunctionInterceptor final : ZKInterceptor {
    explicit FunctionInterceptor(Function its) : function(std::move(its)) {}
    void intercept(URLRequest& request) const override { function(request); }
    Function function;
  };
  return std::make_shared<FunctionInterceptor>(std::move(function));
}

}  // namespace veltrano::internal

#include "platform/posix/http/url_session.h"

#include <cstdlib>
#include <functional>
#include <system_error>

#include "platform/host_callback.h"
#include "platform/posix/http/endpoint.h"
#include "platform/posix/http/exit_gate.h"

namespace veltrano::internal {
namespace {

std::string firstVariable(std::initializer_list<const char*> names) {
  for (const char* const name : names)
    if (const char* const value = std::getenv(name); value != nullptr && *value != '\0')
      return value;
  return {};
}

}  // namespace

PosixURLSession::PosixURLSession(URLSessionOptions options) {
  // Registered here: during exit, when the first post may come, it is too late.
  ExitGate::closeAtExit();
  // Once, because the host may change its environment while a transfer reads it.
  if (options.proxyFromEnvironment && options.proxy.empty()) {
    options.proxy = firstVariable({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"});
    options.noProxy = firstVariable({"no_proxy", "NO_PROXY"});
  }
  for (auto& [url, endpoint] : endpoints_) {
    endpoint = std::make_shared<Endpoint>(options);
    if (endpoint->start()) continue;
    shutDown(std::chrono::steady_clock::now());
    throw std::system_error(EAGAIN, std::generic_category(), "no thread for the network");
  }
}

PosixURLSession::~PosixURLSession() {
  shutDown(std::chrono::steady_clock::now());
}

void PosixURLSession::postData(PostRequest request, URLSessionCallback callback) {
  if (isForkedChild()) return;
  endpointFor(request.baseURL).post(request, callback);
}

void PosixURLSession::ignoreRetryAfter() {
  for (auto& own : endpoints_) own.endpoint->ignoreRetryAfter();
}

bool PosixURLSession::shutDown(std::chrono::steady_clock::time_point deadline) {
  if (isForkedChild()) return false;
  for (auto& own : endpoints_)
    if (own.endpoint) own.endpoint->close();
  bool isComplete = true;
  for (auto& own : endpoints_)
    if (own.endpoint) isComplete &= own.endpoint->shutDown(deadline);
  return isComplete;
}

Endpoint& PosixURLSession::endpointFor(const std::string& baseURL) {
  const std::size_t url = std::hash<std::string>()(baseURL) | 1;
  for (auto& own : endpoints_) {
    std::size_t known = 0;
    if (own.url.compare_exchange_strong(known, url) || known == url) return *own.endpoint;
  }
  return *endpoints_.back().endpoint;
}

}  // namespace veltrano::internal

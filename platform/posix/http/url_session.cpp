#include "platform/posix/http/url_session.h"

#include <cstdlib>
#include <utility>

#include "platform/host_callback.h"
#include "platform/posix/http/network_thread.h"
#include "platform/posix/http/tls_start.h"
#include "platform/posix/system/exit_gate.h"

namespace veltrano::internal {
namespace {

std::string firstVariable(std::initializer_list<const char*> names) {
  for (const char* const name : names)
    if (const char* const value = std::getenv(name); value != nullptr && *value != '\0')
      return value;
  return {};
}

// Reads the environment now: the host may change it while a transfer would read it.
URLSessionOptions withProxy(URLSessionOptions options) {
  if (options.proxyFromEnvironment && options.proxy.empty()) {
    options.proxy = firstVariable({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"});
    options.noProxy = firstVariable({"no_proxy", "NO_PROXY"});
  }
  return options;
}

}  // namespace

PosixURLSession::PosixURLSession(URLSessionOptions options)
    : thread_(std::make_shared<NetworkThread>(withProxy(std::move(options)))) {
  startTLS();
  ExitGate::closeAtExit();
  thread_->start();
}

PosixURLSession::~PosixURLSession() {
  shutDown(std::chrono::steady_clock::now());
}

void PosixURLSession::postData(PostRequest request, URLSessionCallback callback) {
  if (!isForkedChild()) thread_->post(request, callback);
}

std::optional<Rest> PosixURLSession::restOf(EndpointPath path) {
  return isForkedChild() ? std::nullopt : thread_->restOf(path);
}

void PosixURLSession::ignoreRetryAfter() {
  thread_->ignoreRetryAfter();
}

bool PosixURLSession::shutDown(std::chrono::steady_clock::time_point deadline) {
  return !isForkedChild() && thread_->shutDown(deadline);
}

}  // namespace veltrano::internal

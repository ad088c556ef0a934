#include "platform/posix/http/url_session.h"

#include <openssl/crypto.h>

#include <cstdlib>
#include <new>
#include <utility>

#include "platform/host_callback.h"
#include "platform/posix/http/network_thread.h"
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
  // Exit handlers run in reverse order. If the host registered OpenSSL's, it is older than ours and
  // runs later; otherwise INIT_NO_ATEXIT keeps it from ever being registered.
  if (OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) != 1) throw std::bad_alloc();
  ExitGate::closeAtExit();
  thread_->start();
}

PosixURLSession::~PosixURLSession() {
  shutDown(std::chrono::steady_clock::now());
}

void PosixURLSession::postData(PostRequest request, URLSessionCallback callback) {
  if (!isForkedChild()) thread_->post(request, callback);
}

void PosixURLSession::ignoreRetryAfter() {
  thread_->ignoreRetryAfter();
}

bool PosixURLSession::shutDown(std::chrono::steady_clock::time_point deadline) {
  return !isForkedChild() && thread_->shutDown(deadline);
}

}  // namespace veltrano::internal

#include "platform/posix/http/client.h"

#include <openssl/crypto.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "platform/posix/http/exit_gate.h"
#include "platform/posix/system/system.h"

namespace veltrano::internal {
namespace {

// How often the thread checks whether it must stop while the peer is silent.
constexpr std::chrono::milliseconds kMaxPoll{200};

}  // namespace

HTTPClient::HTTPClient(const URLSessionOptions& options) : options_(options) {
  separateDescriptors();  // libcurl opens some that executed programs would inherit
}

HTTPClient::~HTTPClient() {
  const ExitGate::Inside inside;
  multi_.reset();
  OPENSSL_thread_stop();  // inside the gate, because exit does not wait for the thread to end
}

bool HTTPClient::setUp() {
  if (multi_) return true;
  if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) return false;
  multi_.reset(curl_multi_init());
  return multi_ && curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, 1L) == CURLM_OK;
}

// If data arrives on an idle connection, the server is closing it. libcurl would take the closing
// message for a sign that the connection is alive.
void HTTPClient::endDeadConnections() const {
  for (const curl_socket_t socket : sockets_) {
    char bytes[1024];
    if (recv(socket, bytes, 1, MSG_PEEK | MSG_DONTWAIT) < 0) continue;
    shutdown(socket, SHUT_RDWR);
    while (recv(socket, bytes, sizeof bytes, MSG_DONTWAIT) > 0) {
    }
  }
}

TransferResult HTTPClient::send(const Attempt& attempt, const std::atomic<bool>& isStopped) {
  ExitGate::Inside inside;
  if (!setUp()) return {{}, {}, CURLE_OUT_OF_MEMORY};
  endDeadConnections();
  HTTPTransfer transfer(sockets_, options_, attempt, isStopped);
  CURL* const easy = transfer.handle();
  if (easy == nullptr || curl_multi_add_handle(multi_.get(), easy) != CURLM_OK)
    return {{}, {}, CURLE_FAILED_INIT};

  int running = 1;
  while (curl_multi_perform(multi_.get(), &running) == CURLM_OK && running > 0 &&
         !transfer.isOver()) {
    inside.wait([&] {
      if (curl_multi_poll(multi_.get(), nullptr, 0, static_cast<int>(kMaxPoll.count()), nullptr) !=
          CURLM_OK)
        std::this_thread::sleep_for(kMaxPoll);  // avoids a busy loop
    });
  }
  CURLcode code = CURLE_OPERATION_TIMEDOUT;
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left))
    if (message->msg == CURLMSG_DONE) code = message->data.result;
  curl_multi_remove_handle(multi_.get(), easy);
  return transfer.result(code);
}

}  // namespace veltrano::internal

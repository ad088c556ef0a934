#pragma once

#include <openssl/ssl.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/tls_certificate.h"

namespace veltrano {

/// An HTTPS server on the loopback interface that answers byte for byte what a test wants, and may
/// cut connections at any point.
class TLSServer {
 public:
  struct Reply {
    std::string bytes;  // the whole response, head and body; when empty, the client waits
    bool endsConnection = false;
  };
  /// `number` counts the server's requests from 1. Called on threads of the server.
  using Handler = std::function<Reply(int number)>;

  explicit TLSServer(Handler handler, const TLSCertificate& certificate = {});
  ~TLSServer();

  std::string url() const;  // "https://127.0.0.1:port/path"
  int port() const { return port_; }
  const std::string& authorities() const { return pemFile_; }  // a file for clients to trust

  std::vector<std::string> requests() const;  // head and body, in order of arrival
  int connections() const;
  void waitForConnectionEnds(int count);

 private:
  void accept();
  void serve(int socket);
  static std::string readRequest(SSL* tls);

  const Handler handler_;
  SSL_CTX* context_;
  std::string pemFile_;
  int listener_;
  int port_ = 0;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> requests_;  // this and all below guarded by mutex_
  std::vector<int> sockets_;
  std::vector<std::thread> connections_;
  int ended_ = 0;  // connections
  bool stopping_ = false;
  std::thread acceptor_;
};

}  // namespace veltrano

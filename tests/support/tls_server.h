#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/directory.h"
#include "tools/collector/certificate.h"

namespace veltrano::internal {

struct TLSReply {
  std::string bytes;  // the whole response, head and body; empty: none, the client waits
  bool endsConnection = false;
  std::string endless = {};  // sent repeatedly after `bytes`, until the client closes
};

struct TLSServerOptions {
  collector::CertificateOptions certificate = {};
  int newestProtocol = 0;                // such as TLS1_1_VERSION; 0: OpenSSL's newest
  bool readsBodies = true;               // false: answers as soon as the head has arrived
  int resets = 0;                        // so many connections are reset before their handshake
  std::optional<TLSReply> asProxy = {};  // first answers a CONNECT, without TLS
};

/// An HTTPS server on the loopback interface. Tests choose every byte of its responses, and it can
/// close connections at any point.
class TLSServer {
 public:
  /// `number` counts the server's requests, from 1. Called on the server's threads.
  using Handler = std::function<TLSReply(int number)>;

  explicit TLSServer(Handler handler, TLSServerOptions options = {});
  ~TLSServer();

  std::string url(const std::string& path = "/track", const std::string& host = "127.0.0.1") const;
  int port() const { return port_; }
  const std::string& authorities() const { return pemFile_; }  // the file that clients trust
  std::string pin() const;                                     // of the public key, "sha256//..."

  std::vector<std::string> requests() const;  // head and body, including CONNECTs, as they arrived
  int connections() const { return begun_; }
  int endedConnections() const { return ended_; }

 private:
  void accept();
  void serve(int socket);
  int note(const std::string& request);
  bool reset(int socket);
  bool actAsProxy(int socket);
  std::string readRequest(SSL* tls) const;

  const Handler handler_;
  const TLSServerOptions options_;
  SSL_CTX* context_;
  const Directory directory_;
  const std::string pemFile_ = directory_ / "authority.pem";
  int listener_;
  int port_ = 0;
  std::atomic<int> begun_{0}, ended_{0};  // connections

  mutable std::mutex mutex_;
  std::vector<std::string> requests_;  // guarded by mutex_, like everything below
  std::vector<int> sockets_;
  std::vector<std::thread> connections_;
  bool stopping_ = false;
  std::thread acceptor_;
};

}  // namespace veltrano::internal

#pragma once

#include <openssl/ssl.h>

#include <string>

namespace veltrano::internal {

/// A self-signed certificate that is made for one test; it is its own authority.
struct TLSCertificate {
  std::string name = "IP:127.0.0.1";  // the subject's alternative name
  long lifetimeSeconds = 3600;        // from now; negative for one that has expired
  unsigned rsaBits = 0;               // of the key; 0 for one on the curve P-256
};

/// A server's TLS settings, with `certificate`, which is written to `pemFile`. The caller frees it.
SSL_CTX* makeServerContext(const TLSCertificate& certificate, const std::string& pemFile);

/// The pin of the public key that a server with `context` has, "sha256//...".
std::string publicKeyPin(const SSL_CTX* context);

}  // namespace veltrano::internal

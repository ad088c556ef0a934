#pragma once

#include <openssl/ssl.h>

#include <string>

namespace veltrano::internal {

/// A self-signed certificate for one test.
struct TLSCertificate {
  std::string name = "IP:127.0.0.1";  // the subject's alternative name
  long lifetimeSeconds = 3600;        // from now; negative: expired
  unsigned rsaBits = 0;               // size of the RSA key; 0: a P-256 key instead
};

/// A server's TLS context. Writes its certificate to `pemFile`. The caller frees the context.
SSL_CTX* makeServerContext(const TLSCertificate& certificate, const std::string& pemFile);

/// The pin of the public key in `context`, "sha256//...".
std::string publicKeyPin(const SSL_CTX* context);

}  // namespace veltrano::internal

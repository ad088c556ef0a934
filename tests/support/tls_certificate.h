#pragma once

#include <openssl/ssl.h>

#include <string>

#include "tools/collector/certificate.h"

namespace veltrano::internal {

using TLSCertificate = collector::CertificateOptions;

/// A server's TLS context. Writes its certificate to `pemFile`. The caller frees the context.
SSL_CTX* makeServerContext(const TLSCertificate& certificate, const std::string& pemFile);

/// The pin of the public key in `context`, "sha256//...".
std::string publicKeyPin(const SSL_CTX* context);

}  // namespace veltrano::internal

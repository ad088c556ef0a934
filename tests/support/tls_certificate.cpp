#include "tests/support/tls_certificate.h"

namespace veltrano::internal {

SSL_CTX* makeServerContext(const TLSCertificate& options, const std::string& pemFile) {
  const collector::Certificate made = collector::makeCertificate(options);
  collector::writePEM(made, pemFile, {});
  SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
  SSL_CTX_use_certificate(context, made.certificate.get());
  SSL_CTX_use_PrivateKey(context, made.key.get());
  return context;
}

std::string publicKeyPin(const SSL_CTX* context) {
  unsigned char* key = nullptr;
  const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(SSL_CTX_get0_certificate(context)), &key);
  unsigned char digest[32];
  EVP_Digest(key, static_cast<std::size_t>(size), digest, nullptr, EVP_sha256(), nullptr);
  OPENSSL_free(key);
  unsigned char text[45];
  EVP_EncodeBlock(text, digest, sizeof digest);
  return std::string("sha256//") + reinterpret_cast<const char*>(text);
}

}  // namespace veltrano::internal

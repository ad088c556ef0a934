#include "tests/support/tls_certificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>

namespace veltrano::internal {

SSL_CTX* makeServerContext(const TLSCertificate& options, const std::string& pemFile) {
  EVP_PKEY* const key = options.rsaBits > 0 ? EVP_RSA_gen(options.rsaBits) : EVP_EC_gen("P-256");
  X509* const certificate = X509_new();
  X509_set_version(certificate, X509_VERSION_3);
  X509_gmtime_adj(X509_getm_notBefore(certificate), -7200);
  X509_gmtime_adj(X509_getm_notAfter(certificate), options.lifetimeSeconds);
  X509_set_pubkey(certificate, key);
  X509_NAME* const name = X509_get_subject_name(certificate);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>("test server"), -1, -1, 0);
  X509_set_issuer_name(certificate, name);
  X509_EXTENSION* const alternative =
      X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, options.name.c_str());
  X509_add_ext(certificate, alternative, -1);
  X509_sign(certificate, key, EVP_sha256());

  std::FILE* const file = std::fopen(pemFile.c_str(), "w");
  PEM_write_X509(file, certificate);
  std::fclose(file);

  SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
  SSL_CTX_use_certificate(context, certificate);
  SSL_CTX_use_PrivateKey(context, key);
  X509_EXTENSION_free(alternative);
  X509_free(certificate);
  EVP_PKEY_free(key);
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

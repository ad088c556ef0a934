#include "tests/support/tls_certificate.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace veltrano {
namespace {

void addExtension(X509* certificate, int id, const std::string& value) {
  X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, id, value.c_str());
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

}  // namespace

SSL_CTX* makeServerContext(const TLSCertificate& options, std::string& pem) {
  EVP_PKEY* const key = EVP_EC_gen("P-256");
  X509* const certificate = X509_new();
  X509_set_version(certificate, X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate), -7200);
  X509_gmtime_adj(X509_getm_notAfter(certificate), options.lifetimeSeconds);
  X509_set_pubkey(certificate, key);
  X509_NAME* const name = X509_get_subject_name(certificate);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>("test server"), -1, -1, 0);
  X509_set_issuer_name(certificate, name);
  addExtension(certificate, NID_basic_constraints, "critical,CA:TRUE");
  addExtension(certificate, NID_subject_alt_name, options.name);
  X509_sign(certificate, key, EVP_sha256());

  BIO* const text = BIO_new(BIO_s_mem());
  PEM_write_bio_X509(text, certificate);
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(text, &bytes);
  pem.assign(bytes, static_cast<std::size_t>(size));
  BIO_free(text);

  SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
  SSL_CTX_use_certificate(context, certificate);
  SSL_CTX_use_PrivateKey(context, key);
  X509_free(certificate);
  EVP_PKEY_free(key);
  return context;
}

}  // namespace veltrano

#include "tools/collector/certificate.h"

#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdint>
#include <random>
#include <stdexcept>

namespace collector {
namespace {

void require(bool condition) {
  if (!condition) throw std::runtime_error("the certificate cannot be made");
}

void addExtension(X509* certificate, int kind, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  const std::unique_ptr<X509_EXTENSION, Releaser<X509_EXTENSION_free>> extension(
      X509V3_EXT_conf_nid(nullptr, &context, kind, value));
  require(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
}

}  // namespace

Certificate makeCertificate(const CertificateOptions& options) {
  Certificate made{decltype(Certificate::key)(options.rsaBits > 0 ? EVP_RSA_gen(options.rsaBits)
                                                                  : EVP_EC_gen("P-256")),
                   decltype(Certificate::certificate)(X509_new())};
  X509* const certificate = made.certificate.get();
  require(made.key && certificate != nullptr);

  // A random serial number distinguishes the certificates for clients that trust several.
  std::random_device random;
  const auto serial = std::uniform_int_distribution<std::uint64_t>(1)(random);

  require(X509_set_version(certificate, X509_VERSION_3) == 1);
  require(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial) == 1);
  require(X509_gmtime_adj(X509_getm_notBefore(certificate), -24 * 60 * 60) != nullptr);
  require(X509_gmtime_adj(X509_getm_notAfter(certificate), options.lifetimeSeconds) != nullptr);
  X509_NAME* const name = X509_get_subject_name(certificate);
  require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                     reinterpret_cast<const unsigned char*>("localhost"), -1, -1,
                                     0) == 1);
  require(X509_set_issuer_name(certificate, name) == 1);
  require(X509_set_pubkey(certificate, made.key.get()) == 1);
  addExtension(certificate, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
  addExtension(certificate, NID_key_usage, "critical,digitalSignature,keyCertSign");
  addExtension(certificate, NID_ext_key_usage, "serverAuth");
  addExtension(certificate, NID_subject_alt_name, options.name.c_str());
  addExtension(certificate, NID_subject_key_identifier, "hash");
  require(X509_sign(certificate, made.key.get(), EVP_sha256()) > 0);
  return made;
}

void writePEM(const Certificate& certificate, const std::filesystem::path& file,
              const std::filesystem::path& keyFile) {
  const auto write = [](const std::filesystem::path& to, auto content) {
    const std::unique_ptr<BIO, Releaser<BIO_free_all>> output(BIO_new_file(to.c_str(), "w"));
    if (!output || content(output.get()) != 1 || BIO_flush(output.get()) != 1)
      throw std::runtime_error(to.string() + " cannot be written");
  };
  write(file,
        [&](BIO* output) { return PEM_write_bio_X509(output, certificate.certificate.get()); });
  if (keyFile.empty()) return;
  write(keyFile, [&](BIO* output) {
    std::filesystem::permissions(
        keyFile, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    return PEM_write_bio_PrivateKey(output, certificate.key.get(), nullptr, nullptr, 0, nullptr,
                                    nullptr);
  });
}

Certificate readPEM(const std::filesystem::path& file, const std::filesystem::path& keyFile) {
  const std::unique_ptr<BIO, Releaser<BIO_free_all>> input(BIO_new_file(file.c_str(), "r"));
  const std::unique_ptr<BIO, Releaser<BIO_free_all>> keyInput(BIO_new_file(keyFile.c_str(), "r"));
  if (!input || !keyInput) return {};
  Certificate read{decltype(Certificate::key)(
                       PEM_read_bio_PrivateKey(keyInput.get(), nullptr, nullptr, nullptr)),
                   decltype(Certificate::certificate)(
                       PEM_read_bio_X509(input.get(), nullptr, nullptr, nullptr))};
  if (!read.key || !read.certificate) return {};
  if (X509_check_private_key(read.certificate.get(), read.key.get()) != 1)
    throw std::runtime_error(keyFile.string() + " is not the key of " + file.string());
  return read;
}

}  // namespace collector

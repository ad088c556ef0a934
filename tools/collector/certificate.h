// Self-signed certificates, for the collector and for tests.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <filesystem>
#include <memory>
#include <string>

namespace collector {

template <auto release>
struct Releaser {
  template <class T>
  void operator()(T* object) const {
    release(object);
  }
};

/// A certificate and its key.
struct Certificate {
  std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>> key;
  std::unique_ptr<X509, Releaser<X509_free>> certificate;
};

struct CertificateOptions {
  std::string name = "DNS:localhost,IP:127.0.0.1";  // the subject's alternative names
  long lifetimeSeconds = 30 * 24 * 60 * 60;         // from now; negative: expired
  unsigned rsaBits = 0;                             // size of the RSA key; 0: a P-256 key instead
};

/// Throws std::runtime_error on failure.
Certificate makeCertificate(const CertificateOptions& options = {});

/// Writes the certificate and, unless `keyFile` is empty, its key as PEM. Throws std::runtime_error
/// on failure.
void writePEM(const Certificate& certificate, const std::filesystem::path& file,
              const std::filesystem::path& keyFile);

/// Reads the files of `writePEM`. Both members are null if either file cannot be read. Throws
/// std::runtime_error if the key is another certificate's.
Certificate readPEM(const std::filesystem::path& file, const std::filesystem::path& keyFile);

}  // namespace collector

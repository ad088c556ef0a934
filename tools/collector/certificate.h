// The collector's self-signed certificate.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <filesystem>
#include <memory>

namespace collector {

template <auto release>
struct Releaser {
  template <class T>
  void operator()(T* object) const {
    release(object);
  }
};

/// A certificate for this machine's loopback names, and its key.
struct Certificate {
  std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>> key;
  std::unique_ptr<X509, Releaser<X509_free>> certificate;
};

/// Throws std::runtime_error on failure.
Certificate makeCertificate();

/// Writes the certificate and, unless `keyFile` is empty, its key as PEM. Throws std::runtime_error
/// on failure.
void writePEM(const Certificate& certificate, const std::filesystem::path& file,
              const std::filesystem::path& keyFile);

/// Reads the files of `writePEM`. Both members are null if either file cannot be read.
Certificate readPEM(const std::filesystem::path& file, const std::filesystem::path& keyFile);

}  // namespace collector

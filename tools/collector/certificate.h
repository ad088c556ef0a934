// A certificate of the collector's own, made anew each time it starts.
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

/// A self-signed certificate for this machine's loopback names, and its key.
struct Certificate {
  std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>> key;
  std::unique_ptr<X509, Releaser<X509_free>> certificate;
};

/// Throws std::runtime_error when it cannot be made.
Certificate makeCertificate();

/// Writes the certificate as PEM, and its key, too, unless `keyFile` is empty. Throws
/// std::runtime_error when either cannot be written.
void writePEM(const Certificate& certificate, const std::filesystem::path& file,
              const std::filesystem::path& keyFile);

/// Reads what `writePEM` wrote; neither member is set when one of the files cannot be read.
Certificate readPEM(const std::filesystem::path& file, const std::filesystem::path& keyFile);

}  // namespace collector

#include <iostream>

#include "veltrano/posix_platform.h"
#include "veltrano/veltrano.h"

int main(int argc, char** argv) {
  if (argc != 3) return std::cerr << "player HOST:PORT CERTIFICATE\n", 2;
  veltrano::PosixOptions options;
  options.collectionHost = argv[1];          // such as localhost:8443
  options.certificateAuthorities = argv[2];  // omit for a publicly trusted host
  options.onTransfer = [](const veltrano::TransferReport& transfer) {
    std::cerr << transfer.path << ": " << transfer.status << ' ' << transfer.reason << '\n';
  };
  const auto installation = veltrano::PosixPlatform::install(options);
  if (!installation) return std::cerr << installation.error << '\n', 2;

  auto& loop = installation.platform->mainRunLoop();
  bool wasDelivered = false;
  Veltrano::shared().setUserId("user-17");
  Veltrano::shared().track("Bought", {{"plan", "pro"}, {"items", 3}}, [&](bool accepted) {
    wasDelivered = accepted;
    loop.stop();
  });
  loop.run();
  return wasDelivered ? 0 : 1;
}

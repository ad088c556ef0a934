// A host in C++: host HOST CERTIFICATE NAME sends an event of that name and succeeds when it has
// arrived.
#include <optional>
#include <string>
#include <vector>

#include "veltrano/posix_platform.h"
#include "veltrano/statistics.h"
#include "veltrano/veltrano.h"

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  veltrano::PosixOptions options;
  options.collectionHost = argv[1];
  options.certificateAuthorities = argv[2];
  const auto installation = veltrano::PosixPlatform::install(options);
  if (!installation) return 2;

  const std::vector<int> list{1, 2};
  bool wasDelivered = false;
  auto& loop = installation.platform->mainRunLoop();
  Veltrano::shared().setUserId("user");
  Veltrano::shared().setSuperProperties({{"list", list}, {"none", std::optional<int>()}});
  Veltrano::shared().track(argv[3], {{"list", list}, {"text", std::string("t")}},
                           [&](bool accepted) {
                             wasDelivered = accepted;
                             loop.stop();
                           });
  loop.run();
  return wasDelivered && Veltrano::shared().statistics().delivered == 1 ? 0 : 1;
}

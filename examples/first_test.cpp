#include <iostream>

#include "veltrano/posix_platform.h"
#include "veltrano/testing.h"
#include "veltrano/veltrano.h"

int main() {
  using namespace std::chrono_literals;
  veltrano::testing::World world;  // virtual time and a new library
  world.network("/track").answer(503).once();

  veltrano::PosixOptions options;  // from here on your application's code, unchanged
  options.collectionHost = "events.example.com";
  veltrano::PosixPlatform::install(options);
  Veltrano::shared().track("Bought", {{"items", 3}});

  world.advance(40s);  // takes no time
  const auto bought = world.delivered().only("Bought");
  std::cout << bought << '\n' << world.complaints() << '\n';
  return bought["items"] == 3 && world.complaints().empty() ? 0 : 1;
}

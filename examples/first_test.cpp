#include <iostream>

#include "veltrano/testing.h"
#include "veltrano/veltrano.h"

int main() {
  using namespace std::chrono_literals;
  veltrano::testing::World world;  // virtual time and a new library
  world.network("/track").answer(503).once();

  Veltrano::shared().track("Bought", {{"items", 3}});  // your application's code, unchanged

  world.advance(40s);  // takes no time
  const auto bought = world.delivered().only("Bought");
  std::cout << bought << '\n' << world.complaints() << '\n';
  return bought["items"] == 3 && world.complaints().empty() ? 0 : 1;
}

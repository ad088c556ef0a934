// The application's tests, without a test framework: what the compiler cannot see is a complaint.
#include <chrono>
#include <cstdlib>
#include <iostream>

#include "application.h"
#include "veltrano/testing.h"

int main() {
  using namespace std::chrono_literals;
  veltrano::testing::World world;
  world.usePlan(PLAN);
  signIn(false);
  play("Hurt", 218.5, false);
  signIn(true);
  play("Hurt", 218.5, true);
  buy("poster", 9.5);
  signOut();
  world.advance(20s);
  std::cout << world.complaints() << '\n';
  return world.complaints().empty() && world.delivered().size() == 4 ? EXIT_SUCCESS : EXIT_FAILURE;
}

// A host whose test kit and library are of different releases: this program compiles the version
// check with another VELTRANO_RELEASE. Exits with 0 if the kit refuses the library.
#include <cstdio>
#include <cstring>

#include "veltrano/testing.h"

int main() {
  try {
    const veltrano::testing::World world;
  } catch (const veltrano::testing::Error& error) {
    std::puts(error.what());
    return std::strstr(error.what(), "0.9") != nullptr ? 0 : 1;
  }
  return 1;
}

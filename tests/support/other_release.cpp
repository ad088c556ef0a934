// A host whose test kit is of another release than its library: VELTRANO_RELEASE of this program's
// version check is not the library's. Ends with 0 when that is refused.
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

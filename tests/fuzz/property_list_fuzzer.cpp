// Fuzzes the reader of property lists.
#include <cstdint>
#include <cstdlib>

#include "platform/posix/storage/property_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto entries =
      veltrano::internal::readPropertyList({reinterpret_cast<const char*>(data), size});
  if (entries && entries->size() > 50'000) std::abort();
  return 0;
}

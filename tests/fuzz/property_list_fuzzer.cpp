// Fuzzes the reader of property lists, in both forms. Every list that can be read has to survive a
// round trip.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/posix/storage/property_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using veltrano::internal::PropertyList;
  auto list = PropertyList::parse({reinterpret_cast<const char*>(data), size});
  if (!list) return 0;
  list->entries();
  const std::string xml = list->xml();
  const auto again = PropertyList::parse(xml);
  if (!again || again->xml() != xml) std::abort();
  list->setNumber(-0.1, "key");
  if (list->number("key") != -0.1) std::abort();
  return 0;
}

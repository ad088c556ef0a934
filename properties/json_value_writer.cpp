#include "properties/json_value_writer.h"

namespace veltrano::internal {

Kind JSONValueWriter::open(Kind container) {
  if (container == Kind::Array)
    json_.startArray();
  else
    json_.startObject();
  return container;
}

void JSONValueWriter::close(Kind container) {
  container == Kind::Array ? json_.endArray() : json_.endObject();
}

void JSONValueWriter::flat(const char* value) {
  const FlatView given(value);
  switch (given.kind()) {
    case Kind::Int:
    case Kind::Int64:
      return json_.integer(given.integer());
    case Kind::UInt:
      return json_.unsignedInteger(static_cast<std::uint64_t>(given.integer()));
    case Kind::Double:
    case Kind::Float:
      return json_.number(given.real());
    case Kind::Bool:
      return json_.boolean(given.boolean());
    case Kind::Date:
      return json_.string(detail::FlatAccess::date(given).iso8601());
    case Kind::NSNull:
      return json_.null();
    case Kind::String:
    case Kind::URL:
    case Kind::Array:
    case Kind::Dictionary:
    case Kind::Number:
    case Kind::OtherObject:
    case Kind::Absent:
      isGood_ = false;
  }
}

}  // namespace veltrano::internal

#include "properties/json_encoding.h"

#include "properties/property_map.h"

namespace veltrano {
namespace {

bool writeArray(JSONWriter& writer, FlatContents elements) {
  writer.startArray();
  for (const FlatView element : elements)
    if (!writeJSON(writer, element)) return false;
  writer.endArray();
  return true;
}

bool writeProperties(JSONWriter& writer, PropertyView properties) {
  writer.startObject();
  for (const auto& [key, value] : properties) {
    writer.key(key);
    if (!writeJSON(writer, value)) return false;
  }
  writer.endObject();
  return true;
}

}  // namespace

bool writeJSON(JSONWriter& writer, FlatView value) {
  switch (value.kind()) {
    case Kind::String:
    case Kind::URL:
      writer.string(value.text());
      return true;
    case Kind::Int:
    case Kind::Int64:
      writer.integer(value.integer());
      return true;
    case Kind::UInt:
      writer.unsignedInteger(static_cast<std::uint64_t>(value.integer()));
      return true;
    case Kind::Double:
    case Kind::Float:
      writer.number(value.real());
      return true;
    case Kind::Bool:
      writer.boolean(value.boolean());
      return true;
    case Kind::Date:
      writer.string(detail::FlatAccess::date(value).iso8601());
      return true;
    case Kind::NSNull:
      writer.null();
      return true;
    case Kind::Array:
      return writeArray(writer, value.contents());
    case Kind::Dictionary: {
      const auto properties = asProperties(value);
      return properties && writeProperties(writer, *properties);
    }
    case Kind::Number:
    case Kind::OtherObject:
    case Kind::Absent:
      break;
  }
  return false;
}

}  // namespace veltrano

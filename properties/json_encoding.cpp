#include "properties/json_encoding.h"

namespace veltrano {
namespace {

bool writeArray(JSONWriter& writer, const Array& array) {
  writer.startArray();
  for (const HostValue& element : array)
    if (element.member() == nullptr || !writeJSON(writer, *element.member())) return false;
  writer.endArray();
  return true;
}

bool writeDictionary(JSONWriter& writer, const Dictionary& dictionary) {
  // Also keeps the walk from going deeper than conversion lets values nest: only dictionaries with
  // other keys get through it unexamined.
  if (!dictionary.isValidNestedType()) return false;
  writer.startObject();
  for (const auto& [key, value] : dictionary) {
    writer.key(*key.member()->getIf<std::string>());
    if (!writeJSON(writer, *value.member())) return false;
  }
  writer.endObject();
  return true;
}

}  // namespace

bool writeJSON(JSONWriter& writer, const SupportedParameterType& value) {
  using Member = SupportedParameterType::Member;
  switch (value.member()) {
    case Member::String:
      writer.string(*value.getIf<std::string>());
      return true;
    case Member::Int:
      writer.integer(*value.getIf<std::int64_t>());
      return true;
    case Member::UInt:
      writer.unsignedInteger(*value.getIf<std::uint64_t>());
      return true;
    case Member::Int64:
      writer.integer(value.getIf<Int64>()->value);
      return true;
    case Member::Double:
      writer.number(*value.getIf<double>());
      return true;
    case Member::Float:
      writer.number(*value.getIf<float>());
      return true;
    case Member::Bool:
      writer.boolean(*value.getIf<bool>());
      return true;
    case Member::Date:
      writer.string(value.getIf<Date>()->iso8601());
      return true;
    case Member::URL:
      writer.string(value.getIf<URL>()->text());
      return true;
    case Member::NSNull:
      writer.null();
      return true;
    case Member::Array:
      return writeArray(writer, *value.getIf<Array>());
    case Member::Dictionary:
      return writeDictionary(writer, *value.getIf<Dictionary>());
  }
  return false;
}

}  // namespace veltrano

#include "veltrano/value.h"

#include "encoding/utf8.h"

namespace veltrano {
namespace {

// Text is examined where it stays: that is cheaper than passing it through a function.
void mend(std::string& text) {
  if (!isASCII(text)) text = wellFormedUTF8(std::move(text));
}

}  // namespace

SupportedParameterType::SupportedParameterType(std::string text)
    : value_(std::in_place_type<std::string>, std::move(text)) {
  mend(*std::get_if<std::string>(&value_));
}

SupportedParameterType::SupportedParameterType(std::string_view text)
    : value_(std::in_place_type<std::string>, text) {
  mend(*std::get_if<std::string>(&value_));
}

bool SupportedParameterType::isValidNestedType() const {
  if (const auto* array = getIf<veltrano::Array>()) return array->isValidNestedType();
  if (const auto* dictionary = getIf<veltrano::Dictionary>())
    return dictionary->isValidNestedType();
  return true;
}

HostValue::HostValue(const char* text) {
  if (text != nullptr) value_.emplace<SupportedParameterType>(text);
}

HostValue::HostValue(std::initializer_list<detail::ArrayElement> elements)
    : value_(SupportedParameterType(veltrano::Array(elements))) {}

HostValue::HostValue(std::initializer_list<detail::MapElement> entries)
    : value_(SupportedParameterType(veltrano::Dictionary(entries))) {}

HostValue::HostValue(HostMap entries)
    : value_(SupportedParameterType(veltrano::Dictionary(std::move(entries)))) {}

HostMapEntry::HostMapEntry(std::string_view entryKey, HostValue&& entryValue)
    : key(entryKey), value(std::move(entryValue)) {
  mend(key);
}

HostMap::HostMap(std::initializer_list<detail::MapElement> entries) {
  entries_.reserve(entries.size());
  for (const auto& entry : entries) entries_.emplace_back(entry.key, std::move(entry.value));
}

void HostMap::set(std::string_view key, HostValue value) {
  entries_.emplace_back(key, std::move(value));
}

}  // namespace veltrano

#include "veltrano/value.h"

#include "properties/utf8.h"

namespace veltrano {

SupportedParameterType::SupportedParameterType(std::string text)
    : value_(wellFormedUTF8(std::move(text))) {}

bool SupportedParameterType::isValidNestedType() const {
  if (const auto* array = getIf<veltrano::Array>()) return array->isValidNestedType();
  if (const auto* dictionary = getIf<veltrano::Dictionary>())
    return dictionary->isValidNestedType();
  return true;
}

HostValue::HostValue(const char* text) {
  if (text != nullptr) value_ = SupportedParameterType(text);
}

HostValue::HostValue(std::initializer_list<detail::ArrayElement> elements)
    : value_(SupportedParameterType(veltrano::Array(elements))) {}

HostValue::HostValue(std::initializer_list<HostMapEntry> entries)
    : value_(SupportedParameterType(veltrano::Dictionary(entries))) {}

HostValue::HostValue(HostMap entries)
    : value_(SupportedParameterType(veltrano::Dictionary(std::move(entries)))) {}

HostMapEntry::HostMapEntry(std::string_view entryKey, HostValue entryValue)
    : key(wellFormedUTF8(std::string(entryKey))), value(std::move(entryValue)) {}

HostMap::HostMap(std::initializer_list<HostMapEntry> entries) {
  entries_.reserve(entries.size());
  for (const HostMapEntry& entry : entries) {
    HostMapEntry& added = entries_.emplace_back(std::string_view(), HostValue());
    added.key = std::move(entry.key);
    added.value = std::move(entry.value);
  }
}

void HostMap::set(std::string_view key, HostValue value) {
  entries_.emplace_back(key, std::move(value));
}

}  // namespace veltrano

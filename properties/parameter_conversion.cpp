#include "properties/parameter_conversion.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "properties/containers.h"

namespace veltrano {
namespace {

std::optional<SupportedParameterType> convertValue(HostValue value, int depth);

SupportedParameterType convertNumber(const NSNumber& number) {
  switch (number.storageTypeCode()) {
    case 1:   // SInt8
    case 2:   // SInt16
    case 3:   // SInt32
    case 4:   // SInt64
    case 9:   // int
    case 10:  // long
    case 11:  // long long
    case 15:  // NSInteger
      return number.integerValue();
    case 7:  // char, which is how a boolean is boxed
      return number.boolValue();
    default:
      return number.doubleValue();
  }
}

Array convertArray(const Array& array, int depth) {
  std::vector<HostValue> elements;
  elements.reserve(array.size());
  for (const HostValue& element : array)
    if (auto converted = convertValue(element, depth + 1))
      elements.emplace_back(*std::move(converted));
  return Array(std::move(elements));
}

// None for an empty dictionary, as for an empty map.
std::optional<Dictionary> convertDictionary(const Dictionary& dictionary, int depth) {
  if (dictionary.empty()) return std::nullopt;
  std::vector<DictionaryEntry> entries;
  entries.reserve(dictionary.size());
  for (const auto& [key, value] : dictionary)
    if (auto converted = convertValue(value, depth + 1))
      entries.push_back({key, *std::move(converted)});
  return Dictionary(std::move(entries));
}

// `depth` counts the containers around the value.
std::optional<SupportedParameterType> convertValue(HostValue value, int depth) {
  SupportedParameterType* member = ValueAccess::member(value);
  if (member == nullptr) {
    if (const auto* number = value.number()) return convertNumber(*number);
    return std::nullopt;
  }
  const auto* array = member->getIf<Array>();
  const auto* dictionary = member->getIf<Dictionary>();
  if (array == nullptr && dictionary == nullptr) return std::move(*member);
  if (depth == ParameterConversion::kDeepestNesting) return std::nullopt;
  if (array != nullptr) return convertArray(*array, depth);
  // A dictionary with other keys than text goes through as it is.
  if (!dictionary->hasOnlyStringKeys()) return std::move(*member);
  return convertDictionary(*dictionary, depth);
}

}  // namespace

std::optional<SupportedParameterType> ParameterConversion::convert(HostValue value) {
  return convertValue(std::move(value), 0);
}

std::optional<PropertyMap> ParameterConversion::convert(HostMap dictionary) {
  if (dictionary.empty()) return std::nullopt;
  std::vector<HostMapEntry*> given;
  given.reserve(dictionary.size());
  for (HostMapEntry& entry : ValueAccess::entries(dictionary)) given.push_back(&entry);
  std::sort(given.begin(), given.end(), [](const HostMapEntry* l, const HostMapEntry* r) {
    const int byKey = l->key.compare(r->key);
    return byKey != 0 ? byKey < 0 : l < r;
  });
  std::vector<PropertyMap::Entry> entries;
  entries.reserve(given.size());
  for (std::size_t i = 0; i < given.size(); ++i) {
    // Of equal keys the last one counts, also when its value is then left out.
    if (i + 1 < given.size() && given[i]->key == given[i + 1]->key) continue;
    if (auto converted = convertValue(std::move(given[i]->value), 0))
      entries.emplace_back(std::move(given[i]->key), *std::move(converted));
  }
  return PropertyMap(std::move(entries));
}

}  // namespace veltrano

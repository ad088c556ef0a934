#include "properties/property_map.h"

#include <algorithm>
#include <iterator>

namespace veltrano {
namespace {

struct ByKey {
  bool operator()(const PropertyMap::Entry& l, const PropertyMap::Entry& r) const {
    return l.first < r.first;
  }
  bool operator()(const PropertyMap::Entry& l, std::string_view r) const { return l.first < r; }
};

bool isAt(const std::vector<PropertyMap::Entry>& entries,
          std::vector<PropertyMap::Entry>::const_iterator place, std::string_view key) {
  return place != entries.end() && place->first == key;
}

}  // namespace

PropertyMap::PropertyMap(std::vector<Entry> entries) : entries_(std::move(entries)) {
  const auto isBehind = [](const Entry& l, const Entry& r) { return l.first >= r.first; };
  if (std::adjacent_find(entries_.begin(), entries_.end(), isBehind) == entries_.end()) return;
  std::stable_sort(entries_.begin(), entries_.end(), ByKey());
  // Backwards, so that the last of equal keys is the one kept.
  const auto firstKept =
      std::unique(entries_.rbegin(), entries_.rend(),
                  [](const Entry& later, const Entry& it) { return later.first == it.first; });
  entries_.erase(entries_.begin(), firstKept.base());
}

const SupportedParameterType* PropertyMap::find(std::string_view key) const {
  const auto place = std::lower_bound(entries_.begin(), entries_.end(), key, ByKey());
  return isAt(entries_, place, key) ? &place->second : nullptr;
}

void PropertyMap::set(std::string_view key, SupportedParameterType value) {
  const auto place = std::lower_bound(entries_.begin(), entries_.end(), key, ByKey());
  if (isAt(entries_, place, key)) {
    place->second = std::move(value);
  } else {
    entries_.emplace(place, key, std::move(value));
  }
}

std::optional<SupportedParameterType> PropertyMap::remove(std::string_view key) {
  const auto place = std::lower_bound(entries_.begin(), entries_.end(), key, ByKey());
  if (!isAt(entries_, place, key)) return std::nullopt;
  std::optional<SupportedParameterType> removed = std::move(place->second);
  entries_.erase(place);
  return removed;
}

PropertyMap operator+(const PropertyMap& left, const PropertyMap& right) {
  std::vector<PropertyMap::Entry> entries;
  entries.reserve(left.size() + right.size());
  entries.insert(entries.end(), left.begin(), left.end());
  entries.insert(entries.end(), right.begin(), right.end());
  return PropertyMap(std::move(entries));
}

std::optional<std::string> stringValue(const PropertyMap& map, std::string_view key) {
  const auto* value = map.find(key);
  const auto* text = value != nullptr ? value->getIf<std::string>() : nullptr;
  return text != nullptr ? std::optional(*text) : std::nullopt;
}

std::optional<PropertyMap> asPropertyMap(const SupportedParameterType& value) {
  const auto* dictionary = value.getIf<Dictionary>();
  if (dictionary == nullptr || !dictionary->isValidNestedType()) return std::nullopt;
  std::vector<PropertyMap::Entry> entries;
  entries.reserve(dictionary->size());
  for (const auto& [key, member] : *dictionary)
    entries.emplace_back(*key.member()->getIf<std::string>(), *member.member());
  return PropertyMap(std::move(entries));
}

}  // namespace veltrano

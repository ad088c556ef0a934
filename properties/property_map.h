#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "veltrano/value.h"

namespace veltrano {

/// A map from text to members of the set, with value semantics. Its maps are small and read far
/// more often than changed, so it is a sorted vector.
class PropertyMap {
 public:
  using Entry = std::pair<std::string, SupportedParameterType>;
  using const_iterator = std::vector<Entry>::const_iterator;

  PropertyMap() = default;

  /// Of equal keys, the last one given counts.
  explicit PropertyMap(std::vector<Entry> entries);

  /// The value under `key`, or null. Valid until the map changes.
  const SupportedParameterType* find(std::string_view key) const;

  void set(std::string_view key, SupportedParameterType value);

  /// Takes the entry for `key` out and returns what it held.
  std::optional<SupportedParameterType> remove(std::string_view key);

  const_iterator begin() const { return entries_.begin(); }
  const_iterator end() const { return entries_.end(); }
  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }

 private:
  std::vector<Entry> entries_;  // sorted by key, keys unique
};

/// Every entry of both maps; on equal keys the right one's value, replaced whole.
PropertyMap operator+(const PropertyMap& left, const PropertyMap& right);

/// The text under `key` when there is one, else none.
std::optional<std::string> stringValue(const PropertyMap& map, std::string_view key);

/// `value` as a map of properties: a Dictionary all of whose keys are Strings and all of whose
/// values are members. None for everything else.
std::optional<PropertyMap> asPropertyMap(const SupportedParameterType& value);

}  // namespace veltrano

// What the two container types keep their contents in.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "veltrano/value.h"

namespace veltrano {

/// The contents of an Array. Destroying them takes the same stack at any depth of nesting.
struct ArrayStorage {
  explicit ArrayStorage(std::vector<HostValue> contents) : elements(std::move(contents)) {}
  ~ArrayStorage();

  std::vector<HostValue> elements;
};

/// The contents of a Dictionary, sorted by `compare` with unique keys.
struct DictionaryStorage {
  explicit DictionaryStorage(std::vector<DictionaryEntry> contents);
  ~DictionaryStorage();

  std::vector<DictionaryEntry> entries;
  bool hasOnlyStringKeys = true;
};

/// Gives the library the insides of the public value types.
struct ValueAccess {
  static const std::vector<HostValue>* elements(const Array& array) {
    return array.storage_ ? &array.storage_->elements : nullptr;
  }
  static const std::vector<DictionaryEntry>* entries(const Dictionary& dictionary) {
    return dictionary.storage_ ? &dictionary.storage_->entries : nullptr;
  }

  /// The reference by which `value` holds its container's contents, taken out of it; null when it
  /// is no container.
  static std::shared_ptr<const void> takeContents(HostValue& value);

  /// The entries of a map, for moving values out of it.
  static std::vector<HostMapEntry>& entries(HostMap& map) { return map.entries_; }

  /// The member that `value` is, for moving out of it; null when it is none.
  static SupportedParameterType* member(HostValue& value) {
    return std::get_if<SupportedParameterType>(&value.value_);
  }
};

/// A total order over values, members in the order of their declaration first: -1, 0 or 1. Two
/// values are equal when they are of the same member and hold the same. Takes the same stack at
/// any depth of nesting.
int compare(const HostValue& left, const HostValue& right);

}  // namespace veltrano

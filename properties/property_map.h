#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "properties/flat.h"
#include "veltrano/detail/arguments.h"

namespace veltrano::internal {

/// Properties in the flat form: alternating keys and values. Keys are text, sorted and unique;
/// values are members of the closed set. Does not own the bytes.
class PropertyView {
 public:
  struct Entry {
    std::string_view key;
    FlatView value;
  };
  class Iterator {
   public:
    explicit Iterator(FlatContents::Iterator key) : key_(key) {}
    Entry operator*() const {
      auto value = key_;
      return {(*key_).text(), *++value};
    }
    Iterator& operator++() {
      ++ ++key_;
      return *this;
    }
    bool operator==(const Iterator& other) const = default;

   private:
    FlatContents::Iterator key_;
  };

  explicit PropertyView(std::string_view bytes) : contents_(bytes) {}

  Iterator begin() const { return Iterator(contents_.begin()); }
  Iterator end() const { return Iterator(contents_.end()); }
  bool empty() const { return contents_.bytes().empty(); }
  std::string_view bytes() const { return contents_.bytes(); }

  std::optional<FlatView> find(std::string_view key) const;

 private:
  FlatContents contents_;
};

/// A map from text to members of the closed set, with value semantics.
class PropertyMap {
 public:
  PropertyMap() = default;
  explicit PropertyMap(PropertyView properties) : bytes_(properties.bytes()) {}

  PropertyView::Iterator begin() const { return view().begin(); }
  PropertyView::Iterator end() const { return view().end(); }
  bool empty() const { return bytes_.empty(); }

  PropertyView view() const { return PropertyView(bytes_); }

  /// The value under `key`, or none. Valid until the map changes.
  std::optional<FlatView> find(std::string_view key) const { return view().find(key); }

  /// The value of `key` if it is text.
  std::optional<std::string> text(std::string_view key) const;

  /// Removes the entry for `key` and returns its value.
  std::optional<SupportedParameterType> remove(std::string_view key);

 private:
  friend PropertyMap operator+(const PropertyMap& left, PropertyView right);

  std::string bytes_;  // see PropertyView
};

/// The entries of both maps; on equal keys the right value replaces the left one, without merging.
PropertyMap operator+(const PropertyMap& left, PropertyView right);
inline PropertyMap operator+(const PropertyMap& left, const PropertyMap& right) {
  return left + right.view();
}

/// A converted `value` as properties; none unless it is a Dictionary with only String keys.
std::optional<PropertyView> asProperties(FlatView value);

/// A copy of `value`, which must be a member.
SupportedParameterType memberOf(FlatView value);

}  // namespace veltrano::internal

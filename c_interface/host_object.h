// Dynamically typed objects, for hosts in languages other than C++.
#pragma once

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <variant>

#include "properties/property_map.h"
#include "veltrano/value.h"

namespace veltrano::internal {

/// A reference-counted immutable object, or nil. Copies share the object; they may be made, used
/// and destroyed on any thread.
class Object {
 public:
  using Block = std::function<void()>;
  using BooleanBlock = std::function<void(bool)>;

  /// Nil.
  Object() noexcept = default;

  /// An absent value and an empty block become nil.
  explicit Object(HostValue value);
  template <class... Arguments>
  explicit Object(std::function<void(Arguments...)> block) {
    if (block) content_ = std::make_shared<const Content>(std::move(block));
  }

  bool isNil() const noexcept { return content_ == nullptr; }

  /// The text of a string, valid as long as the object; none for any other object.
  std::optional<std::string_view> text() const noexcept;

  /// The contents of a dictionary with only string keys; none for any other object. Refers to the
  /// object.
  std::optional<HostMapView> properties() const;

  /// The object as a property value: absent for nil, an object of another type for a block. Refers
  /// to the object.
  detail::Argument argument() const;

  /// The object as a member of the closed set, or null.
  const SupportedParameterType* member() const noexcept;

  /// The contents if they are a `T`, else null. `T` is one of `HostValue`, `Block`, `BooleanBlock`.
  template <class T>
  const T* getIf() const noexcept {
    return std::get_if<T>(content_.get());
  }

 private:
  using Content = std::variant<HostValue, Block, BooleanBlock>;

  std::shared_ptr<const Content> content_;  // null when nil
};

/// An array, or a dictionary with keys of any type, that grows in place. It copies its elements,
/// collections included, so it cannot contain itself. Not thread-safe.
class MutableCollection {
 public:
  explicit MutableCollection(Kind kind) { contents_.close(contents_.open(kind)); }

  Kind kind() const { return view().kind(); }

  void append(const detail::Argument& element) { add({element}); }

  /// Sets the value of `key`, replacing an earlier one. `value` may be absent.
  void set(std::string_view key, const detail::Argument& value);
  void set(const Object& key, const detail::Argument& value);

  /// The contents of a dictionary with only string keys; none of any other collection. Refers to
  /// the collection.
  std::optional<HostMapView> properties() const;

  /// Refers to the collection.
  detail::Argument argument() const { return detail::FlatAccess::argument(view()); }

  /// An immutable copy.
  Object copy() const;

 private:
  FlatView view() const { return FlatView(contents_.bytes().data()); }
  void add(std::initializer_list<detail::Argument> values);
  FlatWriter::Container open();

  FlatBuffer contents_;  // may still hold replaced values
  std::size_t sizeWhenTidy_ = 0;
  bool hasOnlyStringKeys_ = true;
};

}  // namespace veltrano::internal

// Dynamically typed objects, for hosts in languages other than C++.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <variant>

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

/// A mutable array. It copies its elements, collections included, so it cannot contain itself. Not
/// thread-safe.
class MutableArray {
 public:
  void append(const detail::Argument& element);

  /// An immutable copy.
  Object copy() const { return Object(HostValue(array_)); }

  /// Refers to the array.
  detail::Argument argument() const { return array_; }

 private:
  Array array_;
};

/// A mutable dictionary with keys of any type. It copies, like `MutableArray`. Not thread-safe.
class MutableDictionary {
 public:
  /// Sets the value of `key`, replacing an earlier one. `value` may be absent.
  void set(std::string_view key, const detail::Argument& value) { add(key, value); }
  void set(const Object& key, const detail::Argument& value);

  /// The contents, if all keys are strings. Refers to the dictionary.
  std::optional<HostMapView> properties() const;

  /// Refers to the dictionary.
  detail::Argument argument() const { return dictionary_; }

  /// An immutable copy.
  Object copy() const { return Object(*dictionary_.member()->getIf<Dictionary>()); }

 private:
  void add(const detail::Argument& key, const detail::Argument& value);

  HostValue dictionary_ = Dictionary();  // may still hold replaced values
  std::size_t sizeWhenTidy_ = 0;
  bool hasOnlyStringKeys_ = true;
};

}  // namespace veltrano::internal

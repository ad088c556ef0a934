// What a host that knows nothing of C++ hands in: the objects of the platform's object interface.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <variant>

#include "veltrano/value.h"

namespace veltrano::internal {

/// A reference to an immutable object, or nil. Copies share the object, which lives as long as the
/// last of them; they may be made, used and destroyed on any thread.
class Object {
 public:
  using Block = std::function<void()>;
  using BooleanBlock = std::function<void(bool)>;

  /// Nil.
  Object() noexcept = default;

  /// What is absent becomes nil, and so does an empty block.
  explicit Object(HostValue value);
  explicit Object(Block block);
  explicit Object(BooleanBlock block);

  bool isNil() const noexcept { return content_ == nullptr; }

  /// The object as a property value: nil is absent, a block is an object of another type.
  HostValue value() const;

  /// The text of a string, valid as long as the object; none for everything else.
  std::optional<std::string_view> text() const noexcept;

  /// The contents of a dictionary all of whose keys are strings; none for everything else.
  std::optional<HostMap> map() const;

  /// The member that the object is; null when it is none.
  const SupportedParameterType* member() const noexcept;

  /// What the object holds when that is a `T`, else null. `T` is one of `HostValue`, `Block`,
  /// `BooleanBlock`.
  template <class T>
  const T* getIf() const noexcept {
    return std::get_if<T>(content_.get());
  }

 private:
  using Content = std::variant<HostValue, Block, BooleanBlock>;

  std::shared_ptr<const Content> content_;  // null when nil
};

/// An array that grows. It holds copies, of other collections too, so none can contain itself.
/// For one thread at a time.
class MutableArray {
 public:
  void append(const Object& element);

  /// An array that no later change shows in.
  Object copy() const { return Object(HostValue(array_)); }

 private:
  Array array_;
};

/// A dictionary that grows, with whatever keys. It holds copies, like `MutableArray`.
/// For one thread at a time.
class MutableDictionary {
 public:
  /// Replaces the value of an equal key. A nil value is a key without a value.
  void set(const Object& key, const Object& value);

  /// A dictionary that no later change shows in.
  Object copy() const;

 private:
  HostValue dictionary_ = Dictionary();  // with the values that have been replaced
  std::size_t sizeWhenTidy_ = 0;
};

}  // namespace veltrano::internal

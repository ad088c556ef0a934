// Property values: the closed set of types that an event can hold, and the wider set of values that
// a host may pass.
//
//     HostValue("text")                     a String
//     HostValue(3), HostValue(3u)           an Int, a UInt
//     HostValue(Int64{3})                   an Int64
//     HostValue(0.5), HostValue(0.5f)       a Double, a Float
//     HostValue({"a", "b"})                 an Array
//     HostValue({{"city", "Oslo"}})         a Dictionary with string keys
//     HostValue(Array{Array{1}, 2})         nested lists must name their type
//
// Warning: `HostValue{x}` makes a one-element array.
//
// Warning: containers nest at most 128 deep within a property; a deeper one becomes absent. From C
// and Objective-C it is 127, because the properties themselves count.
//
// A value takes at most 4 GiB. Making a larger one throws std::length_error; `track` drops the
// event.
//
// Copies are deep. Any number of threads may read a value at the same time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "veltrano/detail/arguments.h"
#include "veltrano/export.h"
#include "veltrano/scalars.h"

namespace veltrano {

/// An ordered list of values. Elements may be anything that a host can pass.
class VELTRANO_EXPORT Array {
 public:
  using const_iterator = detail::FlatIterator<HostValue>;

  Array() = default;
  Array(std::initializer_list<detail::ArrayElement> elements);
  explicit Array(const std::vector<HostValue>& elements);

  const_iterator begin() const;
  const_iterator end() const;
  std::size_t size() const;  // counts the elements
  bool empty() const { return begin() == end(); }

  /// True when every element is a member of the set. Looks one level deep.
  bool isValidNestedType() const;

 private:
  friend class detail::Argument;
  friend struct detail::FlatAccess;
  Array(detail::FromFlat, detail::Flat flat) : flat_(std::move(flat)) {}

  detail::Flat flat_{detail::Argument(std::initializer_list<detail::ArrayElement>())};
};

/// A map with unique keys. Keys and values may be anything that a host can pass; among equal keys,
/// the last one wins. The iteration order depends only on the keys, not on how the dictionary was
/// built.
///
/// Warning: a dictionary with a key that is not text makes its event's whole batch undeliverable;
/// the batch is dropped.
class VELTRANO_EXPORT Dictionary {
 public:
  using const_iterator = detail::FlatIterator<DictionaryEntry>;

  Dictionary() = default;
  Dictionary(std::initializer_list<detail::MapElement> entries);
  explicit Dictionary(const HostMap& entries);
  explicit Dictionary(const std::vector<DictionaryEntry>& entries);

  const_iterator begin() const;
  const_iterator end() const;
  std::size_t size() const;  // counts the entries
  bool empty() const { return begin() == end(); }

  bool hasOnlyStringKeys() const;

  /// True when every key is a String and every value is a member of the set. Looks one level deep.
  bool isValidNestedType() const;

 private:
  friend class detail::Argument;
  friend struct detail::FlatAccess;
  Dictionary(detail::FromFlat, detail::Flat flat) : flat_(std::move(flat)) {}

  detail::Flat flat_{detail::Argument(std::initializer_list<detail::MapElement>())};
};

/// A value of the closed set. It keeps the member that it was created as: an `Int` is never an
/// `Int64`, a `Float` never a `Double`.
class VELTRANO_EXPORT SupportedParameterType {
 public:
  enum class Member : std::uint8_t {
    String,
    Int,
    UInt,
    Int64,
    Double,
    Float,
    Bool,
    Date,
    URL,
    NSNull,
    Array,
    Dictionary,
  };
  static_assert(static_cast<int>(Member::Dictionary) == static_cast<int>(detail::Kind::Dictionary));

  /// Signed integers of any width become an `Int`, unsigned ones a `UInt`; all other types keep
  /// their own member. Text is UTF-8: ill-formed sequences become U+FFFD, a null pointer empty
  /// text.
  template <class T, std::enable_if_t<detail::isMember<T>, int> = 0>
  SupportedParameterType(const T& value) : flat_(detail::Argument(value)) {
    if (flat_.kind() == detail::Kind::Absent) *this = std::string_view();
  }

  Member member() const noexcept { return static_cast<Member>(flat_.kind()); }

  /// Returns a copy of the value if its member is the one for `T`, else nothing. `T` is one of
  /// `std::string`, `std::int64_t` (Int), `std::uint64_t` (UInt), `Int64`, `double`, `float`,
  /// `bool`, `Date`, `URL`, `NSNull`, `Array`, `Dictionary`.
  ///
  /// Warning: iterators refer to the returned container, and what an iterator returns is a copy.
  /// Keep both in variables: `for (auto& e : *value.getIf<Array>())` reads freed memory.
  template <class T>
  std::optional<T> getIf() const;

  /// True for every scalar; for containers, see `Array` and `Dictionary`.
  bool isValidNestedType() const;

 private:
  friend class HostValue;
  friend class detail::Argument;
  friend struct detail::FlatAccess;
  SupportedParameterType(detail::FromFlat, detail::Flat flat) : flat_(std::move(flat)) {}

  detail::Flat flat_;
};

/// A value that a host passes: absent, a member of the closed set, a boxed number, or an object of
/// another type.
class VELTRANO_EXPORT HostValue {
 public:
  /// Absent: no value at all.
  HostValue() : HostValue(detail::FromFlat(), detail::Flat(detail::Kind::Absent)) {}
  HostValue(std::nullptr_t) = delete;

  /// Types of the closed set make their member; a null `const char*` and an empty `std::optional`
  /// are absent. The host's own lists (such as `std::vector`) become an Array, its string-keyed
  /// maps (such as `std::map`) a Dictionary. An unordered set counts as an object of another type.
  template <class T, std::enable_if_t<detail::isArgument<T> &&
                                          !detail::isOneOf<T, HostValue, SupportedParameterType>,
                                      int> = 0>
  HostValue(const T& value)
      : HostValue(detail::FromFlat(), detail::Flat(detail::Argument(value))) {}
  HostValue(SupportedParameterType member) : value_(std::move(member)) {}

  /// A list of plain values becomes an Array, a list of key/value pairs a Dictionary.
  HostValue(std::initializer_list<detail::ArrayElement> elements)
      : HostValue(detail::FromFlat(), detail::Flat(detail::Argument(elements))) {}
  HostValue(std::initializer_list<detail::MapElement> entries)
      : HostValue(detail::FromFlat(), detail::Flat(detail::Argument(entries))) {}

  bool isAbsent() const noexcept { return value_.flat_.kind() == detail::Kind::Absent; }

  /// The value as a member of the closed set, or null. Valid as long as this value.
  const SupportedParameterType* member() const noexcept {
    return value_.flat_.kind() < detail::Kind::Number ? &value_ : nullptr;
  }

  /// The boxed number or the object of another type, if the value is one.
  std::optional<NSNumber> number() const;
  std::optional<OtherObject> otherObject() const;

 private:
  friend class detail::Argument;
  friend struct detail::FlatAccess;
  HostValue(detail::FromFlat tag, detail::Flat flat) : value_(tag, std::move(flat)) {}

  SupportedParameterType value_;  // may hold a kind outside the set; `member` never returns that
};

/// One entry of a Dictionary.
struct VELTRANO_EXPORT DictionaryEntry {
  HostValue key;
  HostValue value;
};

/// One entry of a string-keyed map.
struct VELTRANO_EXPORT HostMapEntry {
  HostMapEntry(std::string entryKey, HostValue entryValue)
      : key(std::move(entryKey)), value(std::move(entryValue)) {}

  std::string key;
  HostValue value;
};

/// A map from text to values that a host passes. Among equal keys, the last one wins; iteration and
/// `size` may still include earlier ones. The order is unspecified. Ill-formed UTF-8 in a key
/// becomes U+FFFD; a null pointer is an empty key.
class VELTRANO_EXPORT HostMap {
 public:
  using const_iterator = detail::FlatIterator<HostMapEntry>;

  HostMap() = default;
  HostMap(std::nullopt_t) {}
  HostMap(std::initializer_list<detail::MapElement> entries);

  /// The host's own string-keyed maps, such as `std::map<std::string, int>`.
  template <class T, std::enable_if_t<detail::isMap<T> && detail::isArgument<T>, int> = 0>
  HostMap(const T& map) : flat_(flatMap(map)) {}
  explicit HostMap(const HostMapView& map);

  void set(std::string_view key, const HostValue& value);

  const_iterator begin() const;
  const_iterator end() const;
  std::size_t size() const;  // counts the entries
  bool empty() const { return begin() == end(); }

 private:
  friend class detail::Argument;
  friend struct detail::FlatAccess;

  HostMap(detail::FromFlat, detail::Flat flat) : flat_(std::move(flat)) {}

  static detail::Flat flatMap(const detail::Argument& map);

  detail::Flat flat_{detail::Argument(std::initializer_list<detail::MapElement>())};
  std::size_t sizeWhenTidy_ = 0;  // in bytes
};

/// A map of properties as a parameter type. It refers to what the caller wrote and copies nothing.
///
/// Warning: valid until the end of the full expression; never store one.
class HostMapView {
  template <class T>
  static constexpr bool isMap = std::is_base_of_v<HostMap, T> ||
                                (detail::isMap<T> && detail::isArgument<T>);

 public:
  /// No properties; `{}` and `std::nullopt` mean the same.
  HostMapView() = default;
  HostMapView(std::nullopt_t) {}
  HostMapView(std::initializer_list<detail::MapElement> entries) : map_(entries) {}
  template <class T, std::enable_if_t<isMap<T>, int> = 0>
  HostMapView(const T& map) : map_(map) {}
  template <class T, std::enable_if_t<isMap<T>, int> = 0>
  HostMapView(const std::optional<T>& map) : map_(map) {}
  explicit HostMapView(const detail::Argument& map) : map_(map) {}

  /// The library's own: `map` must refer to a dictionary with only string keys.
  HostMapView(detail::FromFlat, const detail::Argument& map) : map_(map) {}
  const detail::Argument& argument() const { return map_; }

 private:
  detail::Argument map_;
};

}  // namespace veltrano

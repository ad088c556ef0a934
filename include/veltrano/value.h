// Property values: the closed set of types that an event's properties hold, and the looser values
// that a host may hand in.
//
// Values have value semantics. The contents of containers are immutable and shared between copies,
// so copies are cheap and may be read from any thread; no nesting is too deep to be built, copied
// or destroyed.
//
//     HostValue("text")                     a String
//     HostValue(3), HostValue(3u)           an Int, a UInt
//     HostValue(Int64{3})                   an Int64
//     HostValue(0.5), HostValue(0.5f)       a Double, a Float
//     HostValue({"a", "b"})                 an Array
//     HostValue({{"city", "Oslo"}})         a Dictionary with string keys
//     HostValue(Array{Array{1}, 2})         nested lists are written with their type
//
// In braces directly behind a type's name, as in `HostValue{"a"}`, stand the elements of a list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "veltrano/export.h"
#include "veltrano/scalars.h"

namespace veltrano {

class HostMap;
class HostValue;
struct DictionaryEntry;
struct HostMapEntry;

namespace detail {

class ArrayElement;
class MapElement;

template <class T>
inline constexpr bool isCharacter = std::is_same_v<T, char> || std::is_same_v<T, wchar_t> ||
                                    std::is_same_v<T, char16_t> || std::is_same_v<T, char32_t>
#ifdef __cpp_char8_t
                                    || std::is_same_v<T, char8_t>
#endif
    ;

template <class T>
inline constexpr bool isInteger =
    std::is_integral_v<T> && !std::is_same_v<T, bool> && !isCharacter<T> && sizeof(T) <= 8;

// Lists and maps of the host's own types; anything that is text is text.
template <class T, class = void>
inline constexpr bool isMap = false;
template <class T>
inline constexpr bool isMap<T, std::void_t<typename T::key_type, typename T::mapped_type>> =
    std::is_convertible_v<const typename T::key_type&, std::string_view>;

template <class T, class = void>
inline constexpr bool isList = false;
template <class T>
inline constexpr bool
    isList<T, std::void_t<typename T::value_type, typename T::const_iterator,
                          std::enable_if_t<!std::is_convertible_v<const T&, std::string_view>>>> =
        std::is_same_v<std::decay_t<decltype(*std::declval<typename T::const_iterator&>())>,
                       typename T::value_type> &&
        !std::is_same_v<typename T::value_type, DictionaryEntry> &&
        !std::is_same_v<typename T::value_type, HostMapEntry> &&
        !std::is_same_v<typename T::value_type, MapElement>;

}  // namespace detail

/// An ordered list of values. Elements may be anything that a host can hand in.
class VELTRANO_EXPORT Array {
 public:
  Array() = default;
  Array(std::initializer_list<detail::ArrayElement> elements);
  explicit Array(std::vector<HostValue> elements);

  const HostValue* begin() const;
  const HostValue* end() const;
  std::size_t size() const;
  bool empty() const { return size() == 0; }

  /// True when every element is a member of the set. Looks one level deep only.
  bool isValidNestedType() const;

 private:
  friend struct ValueAccess;
  std::shared_ptr<const struct ArrayStorage> storage_;  // null when empty
};

/// A set of key/value entries with unique keys. Keys and values may be anything that a host can
/// hand in; of equal keys, the last one given counts. Entries are visited in an order of the
/// dictionary's own: one for each set of keys, however it was built.
class VELTRANO_EXPORT Dictionary {
 public:
  Dictionary() = default;
  Dictionary(std::initializer_list<detail::MapElement> entries);
  explicit Dictionary(HostMap entries);
  explicit Dictionary(std::vector<DictionaryEntry> entries);

  const DictionaryEntry* begin() const;
  const DictionaryEntry* end() const;
  std::size_t size() const;
  bool empty() const { return size() == 0; }

  bool hasOnlyStringKeys() const;

  /// True when every key is a String and every value is a member of the set. Looks one level deep
  /// only.
  bool isValidNestedType() const;

 private:
  friend struct ValueAccess;
  std::shared_ptr<const struct DictionaryStorage> storage_;  // null when empty
};

/// One member of the closed set of property value types. A value keeps the member that it was
/// created as: an `Int` is never an `Int64`, a `Float` never a `Double`.
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

  /// Text in UTF-8; what is ill-formed becomes U+FFFD. A null pointer counts as empty text.
  SupportedParameterType(std::string text);
  SupportedParameterType(std::string_view text);
  SupportedParameterType(const char* text)
      : SupportedParameterType(std::string_view(text != nullptr ? text : "")) {}

  /// Signed integers of every width are an `Int`, unsigned ones a `UInt`.
  template <class T, std::enable_if_t<detail::isInteger<T>, int> = 0>
  SupportedParameterType(T number) noexcept
      : value_(static_cast<std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>>(
            number)) {}
  template <class T, std::enable_if_t<std::is_same_v<T, bool>, int> = 0>
  SupportedParameterType(T flag) noexcept : value_(flag) {}
  SupportedParameterType(double number) noexcept : value_(number) {}
  SupportedParameterType(float number) noexcept : value_(number) {}

  SupportedParameterType(veltrano::Int64 number) noexcept : value_(number) {}
  SupportedParameterType(veltrano::Date date) noexcept : value_(date) {}
  SupportedParameterType(std::chrono::system_clock::time_point instant)
      : value_(veltrano::Date(instant)) {}
  SupportedParameterType(veltrano::URL url) noexcept : value_(std::move(url)) {}
  SupportedParameterType(veltrano::NSNull null) noexcept : value_(null) {}
  SupportedParameterType(veltrano::Array array) noexcept : value_(std::move(array)) {}
  SupportedParameterType(veltrano::Dictionary dictionary) noexcept
      : value_(std::move(dictionary)) {}

  Member member() const noexcept {
    const auto* container = std::get_if<Container>(&value_);
    return static_cast<Member>(value_.index() + (container != nullptr ? container->index() : 0));
  }

  /// The value when it is of the member that holds a `T`, else null. `T` is one of `std::string`,
  /// `std::int64_t` (Int), `std::uint64_t` (UInt), `Int64`, `double`, `float`, `bool`, `Date`,
  /// `URL`, `NSNull`, `Array`, `Dictionary`.
  template <class T>
  const T* getIf() const noexcept {
    if constexpr (std::is_same_v<T, veltrano::Array> || std::is_same_v<T, veltrano::Dictionary>) {
      const auto* container = std::get_if<Container>(&value_);
      return container != nullptr ? std::get_if<T>(container) : nullptr;
    } else {
      return std::get_if<T>(&value_);
    }
  }

  /// True for every scalar. For a container, whether everything directly in it is a member of the
  /// set, and every key of a Dictionary a String; what lies deeper is not examined.
  bool isValidNestedType() const;

 private:
  friend struct ValueAccess;

  using Container = std::variant<veltrano::Array, veltrano::Dictionary>;

  // The alternatives stand in the order of `Member`. The containers are one of them: values are
  // moved for each event, and libstdc++ does so without a call for up to eleven alternatives.
  std::variant<std::string, std::int64_t, std::uint64_t, veltrano::Int64, double, float, bool,
               veltrano::Date, veltrano::URL, veltrano::NSNull, Container>
      value_;
};

/// A value as a host hands it in: absent, a member of the set, a platform number object, or an
/// object of another type.
class VELTRANO_EXPORT HostValue {
 public:
  /// Absent: no value at all.
  HostValue() noexcept = default;
  HostValue(std::nullopt_t) noexcept {}

  /// A null pointer is absent; everything else that makes a member makes that member.
  HostValue(const char* text);
  template <class T,
            std::enable_if_t<!std::is_base_of_v<HostValue, std::decay_t<T>> &&
                                 !std::is_same_v<std::decay_t<T>, SupportedParameterType> &&
                                 !std::is_convertible_v<T&&, const char*> &&
                                 std::is_constructible_v<SupportedParameterType, T&&>,
                             int> = 0>
  HostValue(T&& value)
      : value_(std::in_place_type<SupportedParameterType>, std::forward<T>(value)) {}
  HostValue(SupportedParameterType member) noexcept : value_(std::move(member)) {}

  HostValue(NSNumber number) noexcept : value_(number) {}
  HostValue(OtherObject object) noexcept : value_(object) {}

  /// A list of plain values is an Array, a list of key/value pairs a Dictionary.
  HostValue(std::initializer_list<detail::ArrayElement> elements);
  HostValue(std::initializer_list<detail::MapElement> entries);
  HostValue(HostMap entries);

  template <class T>
  HostValue(const std::optional<T>& value) {
    if (value) *this = HostValue(*value);
  }

  /// The host's own lists (such as `std::vector`) and string-keyed maps (such as `std::map`).
  template <class T, std::enable_if_t<detail::isList<T> && !detail::isMap<T>, int> = 0>
  HostValue(const T& list);
  template <class T, std::enable_if_t<detail::isMap<T>, int> = 0, class = void>
  HostValue(const T& map);

  HostValue(std::nullptr_t) = delete;

  bool isAbsent() const noexcept { return std::holds_alternative<std::monostate>(value_); }

  /// The member, the number object or the other object that this is; null when it is not.
  const SupportedParameterType* member() const noexcept {
    return std::get_if<SupportedParameterType>(&value_);
  }
  const NSNumber* number() const noexcept { return std::get_if<NSNumber>(&value_); }
  const OtherObject* otherObject() const noexcept { return std::get_if<OtherObject>(&value_); }

 private:
  friend struct ValueAccess;

  std::variant<std::monostate, SupportedParameterType, NSNumber, OtherObject> value_;
};

/// One entry of a Dictionary.
struct DictionaryEntry {
  HostValue key;
  HostValue value;
};

/// One entry of a string-keyed map. Ill-formed UTF-8 in the key becomes U+FFFD.
struct VELTRANO_EXPORT HostMapEntry {
  HostMapEntry(std::string_view entryKey, HostValue&& entryValue);
  HostMapEntry(std::string_view entryKey, const HostValue& entryValue)
      : HostMapEntry(entryKey, HostValue(entryValue)) {}

  std::string key;
  HostValue value;
};

namespace detail {

// An element of a braced list of plain values. It cannot be made from braces itself, which keeps
// a list of key/value pairs from being taken for a list of lists.
class ArrayElement {
 public:
  template <class T, std::enable_if_t<!std::is_same_v<std::decay_t<T>, ArrayElement> &&
                                          std::is_constructible_v<HostValue, T&&>,
                                      int> = 0>
  ArrayElement(T&& element) : value(std::forward<T>(element)) {}

  mutable HostValue value;  // moved out of the list, whose elements are const
};

// An element of a braced list of key/value pairs, which is read before the list ends.
class MapElement {
 public:
  MapElement(std::string_view elementKey, HostValue elementValue)
      : key(elementKey), value(std::move(elementValue)) {}
  template <class T, std::enable_if_t<!std::is_same_v<std::decay_t<T>, HostValue> &&
                                          std::is_constructible_v<HostValue, T&&>,
                                      int> = 0>
  MapElement(std::string_view elementKey, T&& elementValue)
      : key(elementKey), value(std::forward<T>(elementValue)) {}

  std::string_view key;
  mutable HostValue value;  // as in ArrayElement
};

}  // namespace detail

/// A map from text to values as a host hands it in. Entries keep the order in which they were
/// given; of equal keys, the last one counts.
class VELTRANO_EXPORT HostMap {
 public:
  HostMap() = default;
  HostMap(std::nullopt_t) {}
  HostMap(std::initializer_list<detail::MapElement> entries);

  /// The host's own string-keyed maps, such as `std::map<std::string, int>`.
  template <class T, std::enable_if_t<detail::isMap<T>, int> = 0>
  HostMap(const T& map) {
    entries_.reserve(map.size());
    for (const auto& [key, value] : map) set(key, HostValue(value));
  }

  void set(std::string_view key, HostValue value);

  const HostMapEntry* begin() const { return entries_.data(); }
  const HostMapEntry* end() const { return entries_.data() + entries_.size(); }
  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }

 private:
  friend struct ValueAccess;
  std::vector<HostMapEntry> entries_;
};

template <class T, std::enable_if_t<detail::isList<T> && !detail::isMap<T>, int>>
HostValue::HostValue(const T& list) {
  std::vector<HostValue> elements;
  for (const auto& element : list)
    elements.push_back(HostValue(static_cast<const typename T::value_type&>(element)));
  *this = HostValue(Array(std::move(elements)));
}

template <class T, std::enable_if_t<detail::isMap<T>, int>, class>
HostValue::HostValue(const T& map) : HostValue(HostMap(map)) {}

}  // namespace veltrano

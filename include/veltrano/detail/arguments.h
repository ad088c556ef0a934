// How values enter the library: which types of the host stand for which member, and how a value is
// referred to and stored. Hosts use value.h.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "veltrano/export.h"
#include "veltrano/scalars.h"

namespace veltrano {

class Array;
class Dictionary;
class HostMap;
class HostValue;
class HostMapView;
class SupportedParameterType;
struct DictionaryEntry;
struct HostMapEntry;

namespace detail {

class Argument;
class ArrayElement;
class MapElement;
struct FlatAccess;

/// The type of a value. The members of the closed set come first; what else a host can pass starts
/// at 128, because hosts have the numbers compiled in and the set may grow.
enum class Kind : std::uint8_t {
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
  Number = 128,
  OtherObject,
  Absent,
};

/// The sizes of the members that are scalars in the flat form, from String to Dictionary.
inline constexpr std::uint8_t kScalarSizes[] = {0, 9, 9, 9, 9, 5, 2, 9, 0, 1, 0, 0};
static_assert(std::size(kScalarSizes) == static_cast<std::size_t>(Kind::Dictionary) + 1);

/// The size of a scalar in the flat form.
constexpr std::size_t scalarSize(Kind kind) {
  if (kind >= Kind::Number) return kind == Kind::Number ? 21 : 1;
  return kScalarSizes[static_cast<std::size_t>(kind)];
}

/// The size of what precedes a text in the flat form.
inline constexpr std::size_t kTextHead = 5;

template <class T>
inline constexpr bool isCharacter = std::is_same_v<T, char> || std::is_same_v<T, wchar_t> ||
                                    std::is_same_v<T, char16_t> || std::is_same_v<T, char32_t>
#ifdef __cpp_char8_t
                                    || std::is_same_v<T, char8_t>
#endif
    ;

template <class T, class = void>
inline constexpr bool isInteger = false;
template <class T>
inline constexpr bool isInteger<T, std::enable_if_t<std::is_integral_v<T>>> =
    !std::is_same_v<T, bool> && !isCharacter<T> && sizeof(T) <= 8;

template <class T, class... Types>
inline constexpr bool isOneOf = (std::is_same_v<T, Types> || ...);

// The types that store a value in the flat form, and those that the host derives from them.
template <class T>
inline constexpr bool isFlat =
    std::is_base_of_v<HostValue, T> || std::is_base_of_v<SupportedParameterType, T> ||
    std::is_base_of_v<Array, T> || std::is_base_of_v<Dictionary, T> ||
    std::is_base_of_v<HostMap, T>;

template <class T>
inline constexpr bool isCString =
    std::is_convertible_v<const T&, const char*> && !std::is_same_v<T, std::nullptr_t>;
template <class T>
inline constexpr bool isText = isCString<T> || std::is_convertible_v<const T&, std::string_view>;

// A null pointer is empty text.
template <class T>
std::string_view hostText(const T& text) {
  if constexpr (isCString<T>) {
    const char* const characters = text;
    return characters != nullptr ? std::string_view(characters) : std::string_view();
  } else {
    return text;
  }
}

// Types such as std::filesystem::path, whose text is made when it is read.
template <class T>
inline constexpr bool isConvertedToText =
    !isText<T> && !isFlat<T> && std::is_convertible_v<const T&, std::string>;

template <class T>
inline constexpr bool isTime =
    std::is_convertible_v<const T&, std::chrono::system_clock::time_point>;

template <class T>
inline constexpr bool isMember =
    isText<T> || isConvertedToText<T> || isInteger<T> || isTime<T> ||
    isOneOf<T, bool, double, float, Int64, Date, NSNull, URL, Array, Dictionary>;
// Volatile numbers are read once.
template <class T>
inline constexpr bool isMember<volatile T> = std::is_arithmetic_v<T>&& isMember<T>;

// The host's own maps with string keys, and its own lists. Anything that converts to text is text.
template <class T, class = void>
inline constexpr bool isMap = false;
template <class T>
inline constexpr bool isMap<T, std::void_t<typename T::key_type, typename T::mapped_type>> =
    isText<typename T::key_type> && !std::is_same_v<T, typename T::mapped_type>;

template <class T, class = void>
inline constexpr bool isHashed = false;
template <class T>
inline constexpr bool isHashed<T, std::void_t<typename T::hasher>> = true;

template <class T, class = void>
inline constexpr bool isSequence = false;
template <class T>
inline constexpr bool isSequence<
    T, std::void_t<typename T::value_type, decltype(*std::begin(std::declval<const T&>()))>> =
    !isFlat<T> && !isText<T> && !isConvertedToText<T> && !isMap<T> &&
    !std::is_same_v<T, typename T::value_type> &&
    std::is_same_v<std::decay_t<decltype(*std::begin(std::declval<const T&>()))>,
                   typename T::value_type>;

template <class T, class = void>
inline constexpr bool isArgument =
    isMember<T> || isFlat<T> || isOneOf<T, NSNumber, OtherObject, std::nullopt_t>;
template <class T>
inline constexpr bool isArgument<T, std::enable_if_t<isMap<T>>> =
    isArgument<typename T::mapped_type>;
template <class T>
inline constexpr bool isArgument<T, std::enable_if_t<isSequence<T>>> =
    isArgument<typename T::value_type>;
template <class T>
inline constexpr bool isArgument<std::optional<T>> = isArgument<T>;

/// Writes values back to back in the flat form, the library's own encoding. Subclasses provide the
/// memory.
class VELTRANO_EXPORT FlatWriter {
 public:
  struct Container {
    std::size_t start;   // offset of its first byte
    std::uint8_t depth;  // of the deepest value before it in the same container
  };

  /// Begins an Array or a Dictionary. Values written before `close` are its contents; those of a
  /// Dictionary alternate between keys and values.
  Container open(Kind kind);
  void close(Container container);

  void value(const Argument& argument);

  /// Writes a key of a Dictionary and its value. Inline, because a generated header's keys are
  /// known when it is compiled.
  void entry(std::string_view key, const Argument& argument);

  /// Copies a value that is in the flat form already.
  void flat(const char* value);

  void text(Kind kind, std::string_view text);

  void absent() { *take(1) = static_cast<char>(Kind::Absent); }

  /// The size as the flat form stores it; throws if that is too large.
  static std::uint32_t length(std::size_t size) {
    if (size > UINT32_MAX) refuseLength();
    return static_cast<std::uint32_t>(size);
  }

  /// The depth of the deepest value written so far in the innermost open container.
  int depth() const { return depth_; }

 protected:
  FlatWriter(char* begin, char* end, int level)
      : begin_(begin), at_(begin), end_(end), level_(level) {}
  FlatWriter(const FlatWriter&) = delete;
  FlatWriter& operator=(const FlatWriter&) = delete;
  ~FlatWriter() = default;

  /// Makes room for at least `size` more bytes and keeps what has been written.
  virtual void grow(std::size_t size) = 0;

  char* begin_;
  char* at_;
  char* end_;
  int level_;  // how many containers are open around the next value
  std::uint8_t depth_ = 0;

 private:
  void number(const NSNumber& number);

  [[noreturn]] static void refuseLength();

  static constexpr std::size_t kShort = 16;

  template <class Word>
  static void copyEnds(char* to, std::string_view text);
  static void copyText(char* to, std::string_view text);

  // Both return where the next value goes.
  static char* putText(char* to, Kind kind, std::string_view text);
  static char* putScalar(char* to, Kind kind, std::uint64_t bits);

  char* take(std::size_t size) {
    if (static_cast<std::size_t>(end_ - at_) < size) grow(size);
    return std::exchange(at_, at_ + size);
  }
};

/// Refers to a value that the host passes. Valid until the end of the full expression.
class VELTRANO_EXPORT Argument {
 public:
  /// Absent.
  Argument() noexcept = default;
  Argument(std::nullptr_t) = delete;

  Argument(std::initializer_list<ArrayElement> elements) noexcept;
  Argument(std::initializer_list<MapElement> entries) noexcept;

  /// A value that `append` writes.
  Argument(void (*append)(FlatWriter&, const void*), const void* object) noexcept
      : object_(object), append_(append), form_(Form::own) {}

  template <class T, std::enable_if_t<isArgument<T>, int> = 0>
  Argument(const T& value) {
    if constexpr (std::is_volatile_v<T>) {
      *this = Argument(std::remove_volatile_t<T>(value));
    } else if constexpr (isInteger<T>) {
      kind_ = std::is_signed_v<T> ? Kind::Int : Kind::UInt;
      bits_ = static_cast<std::uint64_t>(value);
    } else if constexpr (std::is_same_v<T, bool>) {
      scalar(Kind::Bool, value);
    } else if constexpr (std::is_same_v<T, double>) {
      scalar(Kind::Double, value);
    } else if constexpr (std::is_same_v<T, float>) {
      scalar(Kind::Float, value);
    } else if constexpr (std::is_same_v<T, Int64>) {
      kind_ = Kind::Int64;
      bits_ = static_cast<std::uint64_t>(value.value);
    } else if constexpr (std::is_same_v<T, Date>) {
      kind_ = Kind::Date;
      bits_ = static_cast<std::uint64_t>(value.sinceEpoch().count());
    } else if constexpr (std::is_same_v<T, URL>) {
      refer(Kind::URL, value.text());
    } else if constexpr (std::is_same_v<T, NSNull>) {
      kind_ = Kind::NSNull;
    } else if constexpr (std::is_same_v<T, NSNumber>) {
      form_ = Form::number;
      object_ = &value;
    } else if constexpr (isFlat<T>) {
      flat(value);
    } else if constexpr (isCString<T>) {
      const char* const characters = value;
      if (characters != nullptr) refer(Kind::String, characters);
    } else if constexpr (isText<T>) {
      refer(Kind::String, value);
    } else if constexpr (isTime<T>) {
      *this = Argument(Date(value));
    } else if constexpr (isConvertedToText<T>) {
      form_ = Form::own;
      object_ = &value;
      append_ = [](FlatWriter& writer, const void* object) {
        writer.text(Kind::String, std::string(*static_cast<const T*>(object)));
      };
    } else if constexpr (isMap<T> || (isSequence<T> && !isHashed<T>)) {
      form_ = Form::own;
      object_ = &value;
      append_ = appendOwn<T>;
    } else if constexpr (!std::is_same_v<T, std::nullopt_t>) {
      kind_ = Kind::OtherObject;  // an unordered set, too
    }
  }

  template <class T, std::enable_if_t<isArgument<T>, int> = 0>
  Argument(const std::optional<T>& value) {
    if (value) *this = Argument(*value);
  }

 private:
  friend class FlatWriter;
  friend struct FlatAccess;

  // flat: bytes in the flat form. list, map: a braced list. own: one of the host's containers.
  enum class Form : std::uint8_t { scalar, text, number, flat, list, map, own };

  template <class T>
  void scalar(Kind kind, T value) {
    kind_ = kind;
    std::memcpy(&bits_, &value, sizeof value);
  }

  void refer(Kind kind, std::string_view text) {
    form_ = Form::text;
    kind_ = kind;
    object_ = text.data();
    size_ = text.size();
  }

  void flat(const HostValue& value) noexcept;
  void flat(const SupportedParameterType& value) noexcept;
  void flat(const Array& value) noexcept;
  void flat(const Dictionary& value) noexcept;
  void flat(const HostMap& value) noexcept;

  template <class T>
  static void appendOwn(FlatWriter& writer, const void* object) {
    const auto& container = *static_cast<const T*>(object);
    const auto mark = writer.open(isMap<T> ? Kind::Dictionary : Kind::Array);
    if constexpr (isMap<T>) {
      for (const auto& [key, value] : container) {
        writer.value(hostText(key));
        writer.value(value);
      }
    } else {
      for (const auto& element : container)
        writer.value(static_cast<const typename T::value_type&>(element));
    }
    writer.close(mark);
  }

  union {
    std::uint64_t bits_ = 0;  // of a scalar, which takes the first of its bytes
    const void* object_;
  };
  union {
    std::size_t size_ = 0;  // of text, or a count of elements
    void (*append_)(FlatWriter&, const void*);
  };
  Kind kind_ = Kind::Absent;
  Form form_ = Form::scalar;
};

/// An element of a braced list of plain values. It is not constructible from braces, so that a list
/// of key/value pairs is never ambiguous with a list of lists.
class ArrayElement {
 public:
  template <class T, std::enable_if_t<!std::is_same_v<T, ArrayElement> && isArgument<T>, int> = 0>
  ArrayElement(const T& element) : value(element) {}

  Argument value;
};

/// An element of a braced list of key/value pairs.
class MapElement {
 public:
  // A template, because a key must not be made from braces: two texts in them would be taken for a
  // pair of iterators.
  template <class Key, std::enable_if_t<isText<Key>, int> = 0>
  MapElement(const Key& elementKey, Argument elementValue)
      : key(hostText(elementKey)), value(elementValue) {}

  std::string_view key;
  Argument value;
};

inline Argument::Argument(std::initializer_list<ArrayElement> elements) noexcept
    : object_(elements.begin()), size_(elements.size()), form_(Form::list) {}
inline Argument::Argument(std::initializer_list<MapElement> entries) noexcept
    : object_(entries.begin()), size_(entries.size()), form_(Form::map) {}

template <class Word>
void FlatWriter::copyEnds(char* to, std::string_view text) {
  Word first, last;
  std::memcpy(&first, text.data(), sizeof first);
  std::memcpy(&last, text.data() + text.size() - sizeof last, sizeof last);
  std::memcpy(to, &first, sizeof first);
  std::memcpy(to + text.size() - sizeof last, &last, sizeof last);
}

// Copies short text, of which a call has a dozen, in two moves that may overlap, without a call.
inline void FlatWriter::copyText(char* to, std::string_view text) {
  if (text.size() > kShort)
    std::memcpy(to, text.data(), text.size());
  else if (text.size() >= 8)
    copyEnds<std::uint64_t>(to, text);
  else if (text.size() >= 4)
    copyEnds<std::uint32_t>(to, text);
  else if (text.size() >= 2)
    copyEnds<std::uint16_t>(to, text);
  else if (!text.empty())
    *to = text.front();
}

inline char* FlatWriter::putText(char* to, Kind kind, std::string_view text) {
  const std::uint32_t size = length(text.size());
  *to = static_cast<char>(kind);
  std::memcpy(to + 1, &size, sizeof size);
  copyText(to + kTextHead, text);
  return to + kTextHead + text.size();
}

// Always copies eight bytes, a size known at compile time; the next value overwrites the excess.
inline char* FlatWriter::putScalar(char* to, Kind kind, std::uint64_t bits) {
  *to = static_cast<char>(kind);
  std::memcpy(to + 1, &bits, sizeof bits);
  return to + scalarSize(kind);
}

// Calls nothing when key and value are short and there is room, as in most entries.
inline void FlatWriter::entry(std::string_view key, const Argument& argument) {
  const bool isText = argument.form_ == Argument::Form::text;
  const std::size_t size = isText ? argument.size_ : 0;
  if (argument.form_ > Argument::Form::text || key.size() > kShort || size > kShort ||
      static_cast<std::size_t>(end_ - at_) < 2 * (kTextHead + kShort)) {
    text(Kind::String, key);
    return value(argument);
  }
  char* const to = putText(at_, Kind::String, key);
  at_ = isText ? putText(to, argument.kind_, {static_cast<const char*>(argument.object_), size})
               : putScalar(to, argument.kind_, argument.bits_);
}

struct FromFlat {};

/// One value in its flat form.
class VELTRANO_EXPORT Flat {
 public:
  explicit Flat(Kind kind) : bytes_(1, static_cast<char>(kind)) {}
  explicit Flat(const Argument& argument);

  Flat(const Flat&) = default;
  Flat& operator=(const Flat&) = default;

  /// A moved-from value is empty text, an empty container or absent.
  Flat(Flat&& other) noexcept : bytes_(emptied(other.kind())) { bytes_.swap(other.bytes_); }
  Flat& operator=(Flat&& other) noexcept {
    Flat taken(std::move(other));
    bytes_.swap(taken.bytes_);
    return *this;
  }

  Kind kind() const noexcept { return static_cast<Kind>(bytes_.front()); }
  const std::string& bytes() const noexcept { return bytes_; }
  std::string& bytes() noexcept { return bytes_; }

 private:
  static std::string emptied(Kind kind) noexcept;

  std::string bytes_;
};

/// Iterates over a container and returns copies of what it holds.
template <class Entry>
class VELTRANO_EXPORT FlatIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = Entry;
  using difference_type = std::ptrdiff_t;
  using reference = Entry;
  // NOLINTNEXTLINE(readability-identifier-naming): the name of the standard library
  class pointer {
   public:
    explicit pointer(Entry entry) : entry_(std::move(entry)) {}
    const Entry* operator->() const { return &entry_; }

   private:
    Entry entry_;
  };

  FlatIterator() = default;
  explicit FlatIterator(const char* at) : at_(at) {}

  Entry operator*() const;
  pointer operator->() const { return pointer(**this); }
  FlatIterator& operator++();
  FlatIterator operator++(int) {
    const FlatIterator before = *this;
    ++*this;
    return before;
  }
  friend bool operator==(FlatIterator l, FlatIterator r) { return l.at_ == r.at_; }
  friend bool operator!=(FlatIterator l, FlatIterator r) { return l.at_ != r.at_; }

 private:
  const char* at_ = nullptr;
};

}  // namespace detail

}  // namespace veltrano

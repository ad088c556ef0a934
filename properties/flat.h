// The flat form stores a host's value from the call to the event. One block of bytes holds the
// value and everything nested in it, as the host passed it. Text is repaired, equal keys are
// resolved and values are converted only when the work queue reads it.
//
//     value       kind (1 byte), then
//       String, URL              length (4)  bytes
//       Int, UInt, Int64         number (8)
//       Double, Float, Bool      number (8, 4, 1)
//       Date                     microseconds (8)
//       Number                   code (4)  integer reading (8)  double reading (8)
//       Array                    depth (1)  size of the contents (4)  value value ...
//       Dictionary               depth (1)  size of the contents (4)  key value key value ...
//       NSNull, OtherObject, Absent
//
//     {{"plan", "pro"}, {"items", 3}}  =
//       Dictionary 1 36 | String 4 plan | String 3 pro | String 5 items | Int 3
//
// Numbers are unaligned, in native byte order. A container's depth includes itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "veltrano/detail/arguments.h"

namespace veltrano::internal {

using detail::Flat;
using detail::FlatWriter;
using detail::Kind;
using detail::kTextHead;
using detail::scalarSize;

/// Containers nest at most this deep in a property; deeper ones become absent. Bounds the stack of
/// the recursive functions that walk over values.
inline constexpr int kMaxNesting = 128;

/// What a boxed number is sent as, by its code among the platform's number types: Int, Bool or
/// Double.
constexpr Kind kindOfBoxed(int code) {
  switch (code) {
    case 1:   // SInt8
    case 2:   // SInt16
    case 3:   // SInt32
    case 4:   // SInt64
    case 9:   // int
    case 10:  // long
    case 11:  // long long
    case 15:  // NSInteger
      return Kind::Int;
    case 7:  // char, which is how a boolean is boxed
      return Kind::Bool;
    default:
      return Kind::Double;
  }
}

class FlatContents;

/// Reads one value in the flat form. Does not own the bytes.
class FlatView {
 public:
  explicit FlatView(const char* at) : at_(at) {}
  explicit FlatView(const std::string& bytes) : at_(bytes.data()) {}

  Kind kind() const { return static_cast<Kind>(*at_); }
  bool isMember() const { return kind() < Kind::Number; }
  bool isContainer() const { return kind() == Kind::Array || kind() == Kind::Dictionary; }
  std::string_view bytes() const { return {at_, size()}; }
  const char* data() const { return at_; }

  /// The text of a String or a URL, as the host passed it.
  std::string_view text() const { return {at_ + kTextHead, read<std::uint32_t>(1)}; }

  /// The number of an Int, a UInt or an Int64; the microseconds of a Date.
  std::int64_t integer() const { return read<std::int64_t>(1); }
  double real() const { return kind() == Kind::Float ? read<float>(1) : read<double>(1); }
  bool boolean() const { return read<bool>(1); }

  int numberCode() const { return read<std::int32_t>(1); }
  std::int64_t numberAsInteger() const { return read<std::int64_t>(5); }
  double numberAsDouble() const { return read<double>(13); }

  int depth() const { return isContainer() ? static_cast<unsigned char>(at_[1]) : 0; }

  /// A container's values; a Dictionary's alternate between keys and values.
  FlatContents contents() const;

  /// Bytes before a container's contents.
  static constexpr std::size_t kContainerHead = 6;

 private:
  template <class T>
  T read(std::size_t offset) const {
    T value;
    std::memcpy(&value, at_ + offset, sizeof value);
    return value;
  }
  std::size_t size() const {
    if (kind() == Kind::String || kind() == Kind::URL) return kTextHead + read<std::uint32_t>(1);
    if (isContainer()) return kContainerHead + read<std::uint32_t>(2);
    return scalarSize(kind());
  }

  const char* at_;
};

/// The values in a container.
class FlatContents {
 public:
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = FlatView;
    using difference_type = std::ptrdiff_t;
    using pointer = const FlatView*;
    using reference = FlatView;

    explicit Iterator(const char* at) : at_(at) {}
    FlatView operator*() const { return FlatView(at_); }
    Iterator& operator++() {
      at_ += FlatView(at_).bytes().size();
      return *this;
    }
    bool operator==(const Iterator& other) const = default;

   private:
    const char* at_;
  };

  explicit FlatContents(std::string_view bytes) : bytes_(bytes) {}

  Iterator begin() const { return Iterator(bytes_.data()); }
  Iterator end() const { return Iterator(bytes_.data() + bytes_.size()); }
  std::string_view bytes() const { return bytes_; }

 private:
  std::string_view bytes_;
};

inline FlatContents FlatView::contents() const {
  return FlatContents({at_ + kContainerHead, read<std::uint32_t>(2)});
}

}  // namespace veltrano::internal

namespace veltrano::detail {

/// Gives the library access to the private parts of the public value types.
struct FlatAccess {
  template <class Value>
  static auto& flat(Value& value) {
    if constexpr (std::is_same_v<std::remove_const_t<Value>, HostValue>)
      return value.value_.flat_;
    else
      return value.flat_;
  }
  template <class Value>
  static Value make(Flat flat) {
    return Value(FromFlat(), std::move(flat));
  }
  static Argument url(const char* text) {
    Argument argument(text);
    if (text != nullptr) argument.kind_ = Kind::URL;
    return argument;
  }
  static Argument argument(internal::FlatView value) {
    Argument argument;
    argument.form_ = Argument::Form::flat;
    argument.object_ = value.data();
    return argument;
  }
  /// Whether the value may lie in a collection, which moves as it grows.
  static bool mayLieInCollection(const Argument& given) {
    return given.form_ > Argument::Form::number;
  }
  static Date date(internal::FlatView value) {
    return Date(std::chrono::microseconds(value.integer()));
  }
  static NSNumber number(internal::FlatView value) {
    return {value.numberCode(), value.numberAsInteger(), value.numberAsDouble()};
  }
};

}  // namespace veltrano::detail

namespace veltrano::internal {

template <class Value>
FlatView viewOf(const Value& value) {
  return FlatView(detail::FlatAccess::flat(value).bytes());
}

/// A writer that owns its memory.
class FlatBuffer final : public FlatWriter {
 public:
  /// `level` is the number of containers that count as open around the values written.
  explicit FlatBuffer(int level = 0) : FlatWriter(first_, first_ + sizeof first_, level) {}

  std::string_view bytes() const { return {begin_, static_cast<std::size_t>(at_ - begin_)}; }

  /// Continues the container that the buffer begins with, after what was in it when it was last
  /// closed: it forgets what an exception has left half written.
  Container reopen() {
    at_ = begin_ + FlatView(begin_).bytes().size();
    level_ = 1;
    depth_ = static_cast<std::uint8_t>(FlatView(begin_).depth() - 1);
    return {0, 0};
  }

  /// Replaces everything; keeps it if memory runs out.
  void assign(const FlatBuffer& other) {
    at_ = begin_;
    level_ = 0;
    flat(other.begin_);
  }

 private:
  void grow(std::size_t size) override;

  std::unique_ptr<char[]> grown_;
  char first_[256];
};

/// As `left.compare(right)`, but without a function call when the first bytes differ: a batch takes
/// a tenth less time to encode.
inline int compareTexts(std::string_view left, std::string_view right) {
  if (!left.empty() && !right.empty() && left.front() != right.front())
    return static_cast<unsigned char>(left.front()) < static_cast<unsigned char>(right.front()) ? -1
                                                                                                : 1;
  return left.compare(right);
}

/// A total order over normalised values (see FlatCopier), by kind and then by contents: -1, 0 or 1.
/// All NaNs are equal.
int compare(FlatView left, FlatView right);

/// Whether events can hold the value; otherwise it is left out. So is an empty map, while a map
/// whose entries are all left out stays, empty.
inline bool isSendable(FlatView value) {
  if (value.kind() == Kind::Dictionary) return !value.contents().bytes().empty();
  return value.kind() != Kind::OtherObject && value.kind() != Kind::Absent;
}

}  // namespace veltrano::internal

// The scalar property values that C++ has no type of its own for.
//
// All of them are plain values: copy them freely, use them from any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "veltrano/export.h"

namespace veltrano {

namespace detail {
struct FlatAccess;
}

/// A signed 64-bit integer kept apart from an ordinary one: `Int64{7}` chooses the member `Int64`,
/// a bare `std::int64_t` the member `Int`.
struct VELTRANO_EXPORT Int64 {
  std::int64_t value = 0;
};

/// An explicit null: present, and standing for nothing.
struct VELTRANO_EXPORT NSNull {};

/// A point in time in whole microseconds. Instants more than 30,000 years from 1970 are moved to
/// that distance.
class VELTRANO_EXPORT Date {
 public:
  /// 1970-01-01 00:00:00 UTC.
  Date() = default;
  explicit Date(std::chrono::system_clock::time_point instant);

  /// Fractions are rounded to the nearest microsecond; NaN counts as 0.
  static Date fromSecondsSince1970(double seconds);

  std::chrono::microseconds sinceEpoch() const { return sinceEpoch_; }

  /// ISO 8601 in UTC, cut off at milliseconds, such as "2023-11-14T22:13:20.000Z".
  std::string iso8601() const;

 private:
  friend struct detail::FlatAccess;
  explicit Date(std::chrono::microseconds sinceEpoch) : sinceEpoch_(sinceEpoch) {}

  std::chrono::microseconds sinceEpoch_{0};
};

/// A URL. Its text is kept as it is and not examined, but that ill-formed UTF-8 becomes U+FFFD.
class VELTRANO_EXPORT URL {
 public:
  explicit URL(std::string_view text);

  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

/// A number boxed by the platform's object interface: a storage type code (as `CFNumberGetType`
/// returns it) and one number that reads as an integer, a boolean and a double. Conversion turns
/// it into an `Int`, a `Bool` or a `Double` according to its code.
class VELTRANO_EXPORT NSNumber {
 public:
  /// Integers, booleans among them, read as themselves (limited to INT64_MAX). Of other
  /// numbers the integer reading is cut toward zero and limited to 64 bits; NaN reads as 0.
  template <class T, std::enable_if_t<std::is_arithmetic_v<T>, int> = 0>
  NSNumber(int storageTypeCode, T value)
      : NSNumber(storageTypeCode, integerReading(value), static_cast<double>(value)) {}

  int storageTypeCode() const { return storageTypeCode_; }
  std::int64_t integerValue() const { return integerValue_; }
  bool boolValue() const { return doubleValue_ != 0; }
  double doubleValue() const { return doubleValue_; }

 private:
  friend struct detail::FlatAccess;

  NSNumber(int storageTypeCode, std::int64_t integerValue, double doubleValue)
      : storageTypeCode_(storageTypeCode), integerValue_(integerValue), doubleValue_(doubleValue) {}

  template <class T>
  static std::int64_t integerReading(T value) {
    if constexpr (std::is_floating_point_v<T>)
      return truncated(static_cast<double>(value));
    else if constexpr (std::is_same_v<T, std::uint64_t> || std::is_same_v<T, unsigned long long>)
      return value >> 63 != 0 ? INT64_MAX : static_cast<std::int64_t>(value);
    else
      return static_cast<std::int64_t>(value);
  }
  static std::int64_t truncated(double value);

  int storageTypeCode_;
  std::int64_t integerValue_;
  double doubleValue_;
};

/// A value of a type that properties cannot hold. Conversion leaves it out.
struct VELTRANO_EXPORT OtherObject {};

}  // namespace veltrano

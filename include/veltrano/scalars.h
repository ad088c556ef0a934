// The scalar property values that C++ has no built-in type for. Plain values: any number of threads
// may read one at the same time.
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

/// A signed 64-bit integer as a member of its own: `Int64{7}` becomes an `Int64`, a plain
/// `std::int64_t` an `Int`.
struct VELTRANO_EXPORT Int64 {
  std::int64_t value = 0;
};

/// An explicit null, which events hold as null; an absent value is left out instead.
struct VELTRANO_EXPORT NSNull {};

/// A point in time in whole microseconds, limited to 30,000 years before and after 1970.
class VELTRANO_EXPORT Date {
 public:
  /// 1970-01-01 00:00:00 UTC.
  Date() = default;
  explicit Date(std::chrono::system_clock::time_point instant);

  /// Of any unit that the clock's own converts from, such as `std::chrono::sys_days`.
  template <
      class Unit,
      std::enable_if_t<std::is_convertible_v<Unit, std::chrono::system_clock::duration>, int> = 0>
  explicit Date(std::chrono::time_point<std::chrono::system_clock, Unit> instant)
      : Date(fromSecondsSince1970(
            std::chrono::duration<double>(instant.time_since_epoch()).count())) {
    // Within the limits no unit overflows.
    if (-kFarthest < sinceEpoch_ && sinceEpoch_ < kFarthest)
      sinceEpoch_ = std::chrono::floor<std::chrono::microseconds>(instant.time_since_epoch());
  }

  /// Fractions are rounded to the nearest microsecond; NaN counts as 0.
  static Date fromSecondsSince1970(double seconds);

  std::chrono::microseconds sinceEpoch() const { return sinceEpoch_; }

  /// ISO 8601 in UTC, truncated to milliseconds, such as "2023-11-14T22:13:20.000Z".
  std::string iso8601() const;

 private:
  friend struct detail::FlatAccess;
  explicit Date(std::chrono::microseconds sinceEpoch) : sinceEpoch_(sinceEpoch) {}

  static constexpr std::chrono::microseconds kFarthest =
      std::chrono::seconds(31'556'952) * 30'000LL;

  std::chrono::microseconds sinceEpoch_{0};
};

/// A URL. Its text is not validated; ill-formed UTF-8 becomes U+FFFD.
class VELTRANO_EXPORT URL {
 public:
  explicit URL(std::string_view text);

  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

/// A number boxed by the platform: a storage type code (as `CFNumberGetType` returns it) and one
/// number, readable as an integer, a boolean and a double. Events hold it as an `Int` for the codes
/// 1 to 4, 9 to 11 and 15, as a `Bool` for 7, and as a `Double` for every other code.
class VELTRANO_EXPORT NSNumber {
 public:
  /// The integer reading of a floating-point number is truncated toward zero and limited to 64
  /// bits, 0 for NaN; that of an unsigned integer is limited to INT64_MAX.
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

/// A value of a type that events cannot hold. It is left out.
struct VELTRANO_EXPORT OtherObject {};

}  // namespace veltrano

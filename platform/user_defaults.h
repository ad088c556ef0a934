#pragma once

#include <string_view>

namespace veltrano::internal {

/// Settings that survive the process. Safe to call from any thread.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;

  /// The number under `key`; 0 when there is none.
  virtual double doubleForKey(std::string_view /*key*/) const { return 0; }

  /// Whether the store holds `value` under `key`: not when it could not be written.
  virtual bool isStored(double value, std::string_view key) const {
    return doubleForKey(key) == value;
  }

  /// Stores `value`. One that cannot be written counts for this process only.
  virtual void setDouble(double /*value*/, std::string_view /*key*/) {}
};

}  // namespace veltrano::internal

#pragma once

#include <string_view>

namespace veltrano::internal {

/// Persistent settings. Thread-safe.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;

  /// The number under `key`; 0 when there is none.
  virtual double doubleForKey(std::string_view /*key*/) const { return 0; }

  /// Whether `value` is stored persistently under `key`; false when it could not be written.
  virtual bool isStored(double value, std::string_view key) const {
    return doubleForKey(key) == value;
  }

  /// Stores `value`. If it cannot be written, it applies to this process only.
  virtual void setDouble(double /*value*/, std::string_view /*key*/) {}
};

}  // namespace veltrano::internal

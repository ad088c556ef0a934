#pragma once

#include <string_view>

namespace veltrano {

/// Settings that survive the process. Safe to call from any thread.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;

  /// The number stored under `key`; 0 when there is none.
  virtual double doubleForKey(std::string_view /*key*/) const { return 0; }

  /// Stores `value`. A store that cannot be written keeps the value for this process only.
  virtual void setDouble(double /*value*/, std::string_view /*key*/) {}
};

}  // namespace veltrano

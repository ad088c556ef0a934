#pragma once

#include <string>

namespace veltrano::internal {

/// A size on the screen, in points.
struct ScreenSize {
  double width = 0;
  double height = 0;
};

/// The device and its main screen. Safe to call from any thread.
class Device {
 public:
  virtual ~Device() = default;

  virtual ScreenSize mainScreenSize() const { return {}; }
  virtual std::string systemName() const { return {}; }
  virtual std::string systemVersion() const { return {}; }

  /// The `machine` field of `uname`; empty when the call fails.
  virtual std::string machine() const { return {}; }

  /// 0 unknown, 1 portrait, 2 portrait upside down, 3 landscape left, 4 landscape right, 5 face up,
  /// 6 face down; other values may occur.
  virtual int orientation() const { return 0; }
};

}  // namespace veltrano::internal

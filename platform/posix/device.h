#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/device.h"

namespace veltrano {

/// This machine, with a screen and an orientation as its host last described them.
class PosixDevice final : public Device {
 public:
  /// Without a name or version of its own, the system is what `uname` says.
  PosixDevice(std::optional<std::string> systemName, std::optional<std::string> systemVersion);

  void setMainScreenSize(ScreenSize size);
  void setOrientation(int orientation) { orientation_ = orientation; }

  /// In single precision.
  ScreenSize mainScreenSize() const override;
  std::string systemName() const override { return systemName_; }
  std::string systemVersion() const override { return systemVersion_; }
  std::string machine() const override { return machine_; }
  int orientation() const override { return orientation_; }

 private:
  std::string systemName_;
  std::string systemVersion_;
  std::string machine_;
  // Both sides in one word: readers neither wait nor see the sides of two different sizes.
  std::atomic<std::uint64_t> screenSize_{0};
  std::atomic<int> orientation_{0};
};

}  // namespace veltrano

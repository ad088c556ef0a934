#pragma once

#include <atomic>
#include <mutex>
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

  ScreenSize mainScreenSize() const override;
  std::string systemName() const override { return systemName_; }
  std::string systemVersion() const override { return systemVersion_; }
  std::string machine() const override { return machine_; }
  int orientation() const override { return orientation_; }

 private:
  std::string systemName_;
  std::string systemVersion_;
  std::string machine_;
  mutable std::mutex mutex_;
  ScreenSize screenSize_;  // guarded by mutex_; read once in a process, so nobody waits
  std::atomic<int> orientation_{0};
};

}  // namespace veltrano

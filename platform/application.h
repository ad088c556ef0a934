#pragma once

namespace veltrano::internal {

enum class ApplicationState { active = 0, inactive = 1, background = 2 };

/// The host application as the operating system sees it. Safe to call from any thread.
class Application {
 public:
  virtual ~Application() = default;

  virtual ApplicationState state() const { return ApplicationState::background; }

  /// 1 portrait, 2 portrait upside down, 3 and 4 landscape, 0 unknown; other values may occur.
  virtual int interfaceOrientation() const { return 0; }
};

}  // namespace veltrano::internal

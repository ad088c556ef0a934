#pragma once

#include <atomic>

#include "platform/application.h"

namespace veltrano {

/// The application as its host last described it.
class PosixApplication final : public Application {
 public:
  PosixApplication(ApplicationState state, int interfaceOrientation)
      : state_(state), interfaceOrientation_(interfaceOrientation) {}

  void setState(ApplicationState state) { state_ = state; }
  void setInterfaceOrientation(int orientation) { interfaceOrientation_ = orientation; }

  ApplicationState state() const override { return state_; }
  int interfaceOrientation() const override { return interfaceOrientation_; }

 private:
  std::atomic<ApplicationState> state_;
  std::atomic<int> interfaceOrientation_;
};

}  // namespace veltrano

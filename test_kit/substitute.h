#pragma once

#include <memory>

#include "platform/platform.h"
#include "veltrano/export.h"
#include "veltrano/statistics.h"

namespace veltrano::internal {

class CallObserver;
class TestBackend;

/// A library in the place of the process's own, for as long as this lives. The one part of the test
/// kit that belongs to the shared library, where the place is.
class VELTRANO_EXPORT Substitute {
 public:
  /// All three must outlive it. One at a time.
  Substitute(const Platform& platform, CallObserver& observer, TestBackend& backend);

  /// Nothing on the platform may run any more.
  ~Substitute();

  Substitute(const Substitute&) = delete;
  Substitute& operator=(const Substitute&) = delete;

  Statistics statistics() const;

  /// Of the library, such as "1.0.0".
  static const char* version() noexcept;

 private:
  struct State;

  const std::unique_ptr<State> state_;
};

}  // namespace veltrano::internal

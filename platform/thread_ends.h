#pragma once

namespace veltrano::internal {

/// Tells when threads of the host end.
class ThreadEnds {
 public:
  virtual ~ThreadEnds() = default;

  /// Calls `function` when the calling thread ends, after its thread-local destructors. Replaces an
  /// earlier function. False if that cannot be arranged.
  virtual bool callAtEnd(void (* /*function*/)()) { return false; }
};

}  // namespace veltrano::internal

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "upload/rules/final_flush.h"
#include "veltrano/export.h"
#include "veltrano/statistics.h"

namespace veltrano::internal {

class CallObserver;
class Installer;

// The interface between the kit and the library changes with each release. This name lets the
// linker refuse those of different ones.
inline namespace VELTRANO_RELEASE_NAME {

/// Replaces the process's library and installer as long as it lives. The only part of the test kit
/// in the shared library, which holds the pointer to the process's library.
class VELTRANO_EXPORT Substitute {
 public:
  /// The arguments must outlive it. Create only one at a time.
  Substitute(const Platform& platform, CallObserver& observer, Installer& installer);

  /// Nothing may run on the platform any more.
  ~Substitute();

  /// See `Library::configure`.
  void configure(std::string collectionHost, std::vector<std::string> withheldProperties);

  Statistics statistics() const;

  /// See `Tracker::lastFlush`.
  FlushResult lastFlush() const;

  /// Makes the process's library inert and drops what waits and the host's callbacks. Nothing may
  /// run on the platform any more, except calls that have begun.
  void shutDown();

  /// Whether this thread runs a callback of the host that a library calls.
  static bool isInCallback() noexcept;

 private:
  struct State;

  const std::unique_ptr<State> state_;
};

}  // namespace VELTRANO_RELEASE_NAME

}  // namespace veltrano::internal

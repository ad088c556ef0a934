#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

#include "properties/property_map.h"
#include "veltrano/detail/arguments.h"

namespace veltrano::internal {

/// Observes the host's calls to a library, and the layers of its events. For tests; the process's
/// own library has none.
class CallObserver {
 public:
  /// An event that joins the queue.
  struct QueuedEvent {
    std::string_view name;
    std::string_view json;  // as it will be sent; empty when it cannot be encoded
    FlatView given;         // what the host passed: a Dictionary, or absent
    const PropertyMap& superProperties;
    const PropertyMap& defaultProperties;
  };

  /// May replace a callback that the host passes to the library; it is not empty.
  virtual void given(std::string_view eventName, std::function<void(bool)>& completion) = 0;
  virtual void given(std::function<void()>& refreshHandler) = 0;

  /// The host has called `operation` of the facade, on this thread. For each callback among the
  /// arguments, a Bool says whether there is one.
  virtual void called(std::string_view operation, const HostMapView& arguments) = 0;

  /// A call did nothing: the argument with this index is missing or has the wrong type, or, for
  /// `kNoArgument`, there is no operation with this name and number of arguments.
  static constexpr std::size_t kNoArgument = SIZE_MAX;
  virtual void refused(std::string_view operation, std::size_t argument) = 0;

  /// Called on the work queue.
  virtual void recorded(const QueuedEvent& event) = 0;

  /// All waiting events have been dropped. Called on the work queue.
  virtual void dropped() = 0;

 protected:
  ~CallObserver() = default;
};

}  // namespace veltrano::internal

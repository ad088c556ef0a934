#pragma once

#include <string_view>

#include "properties/property_map.h"
#include "veltrano/value.h"

namespace veltrano::internal {

/// Watches what a host asks of one library, and what its events are made of. For tests: a library
/// has one only when whoever made it wanted one.
class CallObserver {
 public:
  /// One event, when it joins the queue.
  struct Event {
    std::string_view name;
    std::string_view json;  // as it will be sent; empty when it cannot be encoded
    FlatView given;         // what the host passed: a Dictionary, or absent
    const PropertyMap& superProperties;
    const PropertyMap& defaultProperties;
  };

  /// The host has called `operation`, on this thread; it is named like the facade's. A callback
  /// that the call is passed is told of as true.
  virtual void called(std::string_view operation, const HostMapView& arguments) = 0;

  /// On the work queue.
  virtual void recorded(const Event& event) = 0;

 protected:
  ~CallObserver() = default;
};

}  // namespace veltrano::internal

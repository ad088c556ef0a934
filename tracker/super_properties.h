#pragma once

#include <memory>
#include <utility>

#include "platform/mutex.h"
#include "properties/property_map.h"

namespace veltrano::internal {

/// The properties that every later event carries. Replaced only on the work queue.
class SuperProperties {
 public:
  /// On the work queue only. Valid until the next `replace`.
  const PropertyMap& current() const { return *properties_; }

  /// The current properties. Thread-safe.
  std::shared_ptr<const PropertyMap> snapshot() const {
    const Lock lock(mutex_);
    return properties_;
  }

  void replace(PropertyMap properties) {
    // Declared before the lock, so that the old properties are destroyed after its release.
    auto replaced = std::make_shared<const PropertyMap>(std::move(properties));
    const Lock lock(mutex_);
    properties_.swap(replaced);
  }

 private:
  mutable Mutex mutex_;
  // Written by the work queue under mutex_; the work queue reads it without the lock.
  std::shared_ptr<const PropertyMap> properties_ = std::make_shared<PropertyMap>();
};

}  // namespace veltrano::internal

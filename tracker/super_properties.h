#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "properties/property_map.h"

namespace veltrano::internal {

/// The properties that every later event carries. Replaced on the work queue alone.
class SuperProperties {
 public:
  /// For the work queue: valid until the next `replace`.
  const PropertyMap& current() const { return *properties_; }

  /// The properties as they are now. From any thread.
  std::shared_ptr<const PropertyMap> snapshot() const {
    const std::lock_guard lock(mutex_);
    return properties_;
  }

  void replace(PropertyMap properties) {
    // The old ones are destroyed after the lock is released.
    auto replaced = std::make_shared<const PropertyMap>(std::move(properties));
    const std::lock_guard lock(mutex_);
    properties_.swap(replaced);
  }

 private:
  mutable std::mutex mutex_;
  // Replaced under mutex_, on the work queue, which reads it without.
  std::shared_ptr<const PropertyMap> properties_ = std::make_shared<PropertyMap>();
};

}  // namespace veltrano::internal

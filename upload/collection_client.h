#pragma once

#include <memory>
#include <span>
#include <string_view>

#include "log/log.h"
#include "platform/platform.h"
#include "properties/default_properties.h"
#include "properties/property_map.h"
#include "upload/accounting.h"

namespace veltrano::internal {

/// Posts to the collection host. Holds what every request needs.
struct CollectionClient {
  /// Posts the pieces of `json` to `path` for the user `uid`. The body is "data=" followed by the
  /// Base64 of the JSON. `superProperties` provide the version of the library for its header.
  /// `interceptor` may be null.
  void post(EndpointPath path, Urgency urgency, std::string_view uid,
            const PropertyMap& superProperties, std::span<const std::string_view> json,
            std::shared_ptr<const ZKInterceptor> interceptor, URLSessionCallback callback) const;

  const Platform& platform;
  const DefaultProperties& defaultProperties;
  const Log& log;
  Accounting& accounting;
};

}  // namespace veltrano::internal

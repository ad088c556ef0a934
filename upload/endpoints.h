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

/// The endpoints of the collection host, with what every request to them is made of.
struct Endpoints {
  /// Posts `json` to `path` for the user `uid`. The version headers take the library's version from
  /// `superProperties`; the body is "data=" followed by the Base64 of `json`, which may come in
  /// pieces. `interceptor` may be null.
  void post(std::string_view path, std::string_view uid, const PropertyMap& superProperties,
            std::span<const std::string_view> json,
            std::shared_ptr<const ZKInterceptor> interceptor, URLSessionCallback callback) const;

  const Platform& platform;
  const DefaultProperties& defaultProperties;
  const Log& log;
  Accounting& accounting;
};

}  // namespace veltrano::internal

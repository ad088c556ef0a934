// What the requests to both endpoints of the collection host have in common.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "platform/url_session.h"
#include "properties/property_map.h"

namespace veltrano {

/// A post of `json` to `path` on the collection host for the user `uid`: the URL, the query, the
/// version headers (the library's version is taken from `superProperties`) and the body, "data="
/// followed by the Base64 of `json`, which may come in pieces.
PostRequest makeEndpointPost(std::string_view path, std::string_view uid,
                             const PropertyMap& superProperties,
                             std::span<const std::string_view> json);

}  // namespace veltrano

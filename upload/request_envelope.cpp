#include "upload/request_envelope.h"

#include "encoding/base64.h"
#include "platform/platform.h"
#include "properties/default_properties.h"

namespace veltrano {

PostRequest makeEndpointPost(std::string_view path, std::string_view uid,
                             const PropertyMap& superProperties,
                             std::span<const std::string_view> json) {
  PostRequest request;
  request.baseURL = "https://" + platform().collectionHost + std::string(path);
  request.headerParameters = {
      {"lib_version", "ios_" + superProperties.text("lib_version").value_or("0.0")},
      {"publisher_version", "ios_" + DefaultProperties::publisherVersion()},
  };
  request.qsParameters = {{"uid", std::string(uid)}};
  request.httpMethod = HTTPMethod::post;
  request.httpBody = "data=";
  appendBase64(request.httpBody, json);
  return request;
}

}  // namespace veltrano

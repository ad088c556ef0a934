#include "upload/collection_client.h"

#include <utility>

#include "encoding/base64.h"
#include "platform/host_callback.h"

namespace veltrano::internal {

void CollectionClient::post(EndpointPath path, Urgency urgency, std::string_view uid,
                            const PropertyMap& superProperties,
                            std::span<const std::string_view> json,
                            std::shared_ptr<const ZKInterceptor> interceptor,
                            URLSessionCallback callback) const {
  PostRequest request;
  request.baseURL = "https://" + platform.collectionHost + std::string(text(path));
  request.headerParameters = {
      {"lib_version", "ios_" + superProperties.text("lib_version").value_or("0.0")},
      {"publisher_version", "ios_" + defaultProperties.publisherVersion()},
  };
  request.qsParameters = {{"uid", std::string(uid)}};
  request.httpMethod = HTTPMethod::post;
  request.httpBody = "data=";
  appendBase64(request.httpBody, json);
  request.interceptor = std::move(interceptor);
  request.urgency = urgency;
  // The outcome of an upload only logs; that of a heartbeat may call a refresh handler, too.
  if (path == EndpointPath::track) request.callsHost = &log.enabled();
  platform.urlSession->postData(std::move(request), [this, path, callback = std::move(callback)](
                                                        auto data, auto response, auto error) {
    // One that was put off says less than the one before it.
    dropExceptions([&] {
      if (error && error->wasPutOff) return;
      accounting.requestEnded(path, {response ? response->httpStatusCode : std::nullopt,
                                     error ? error->reason : "", platform.wallClock->elapsed()});
    });
    callback(std::move(data), std::move(response), std::move(error));
  });
}

}  // namespace veltrano::internal

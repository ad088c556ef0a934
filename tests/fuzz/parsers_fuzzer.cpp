// Fuzzes the parsers of network input: heartbeat responses, and the collector's requests, both
// arbitrary ones and ones that are well-formed up to their JSON.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "encoding/base64.h"
#include "heartbeat/heartbeat_endpoint_request.h"
#include "tools/collector/wire_check.h"

namespace {

void check(const std::string& path, std::string body) {
  httplib::Request request;
  request.method = "POST";
  request.path = path;
  request.params = {{"uid", "u"}};
  request.headers = {{"lib_version", "ios_1"}, {"publisher_version", "ios_1"}};
  request.body = std::move(body);
  collector::WireMessage message;
  const auto problem = collector::readRequest(request, message);
  // An accepted request has a complete message.
  if (!problem && (message.uid != "u" || message.json.empty())) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  veltrano::internal::VLTrackingEvent::fromJSON(text);

  std::string encoded = "data=";
  const std::string_view whole(text);
  const std::string_view pieces[] = {whole.substr(0, size / 3), whole.substr(size / 3)};
  veltrano::internal::appendBase64(encoded, pieces);
  for (const char* path : {"/track", "/heartbeat"}) {
    check(path, text);
    check(path, encoded);
  }
  return 0;
}

#pragma once

#include <rapidjson/stringbuffer.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "properties/property_map.h"
#include "tracker/event_encoder.h"

namespace bench {

/// One event as passed to the library, and as passed to the reference: sorted and converted.
struct Event {
  std::string name;
  veltrano::internal::AutomaticProperties automatic;
  veltrano::HostMap given;
  veltrano::internal::PropertyMap converted;
};

/// Encodes batches in the obvious way, with RapidJSON and OpenSSL. Produces the same bytes as the
/// library, as long as no event overrides an automatic or super property.
class RapidJSONReference {
 public:
  /// Both results are valid until the next call.
  std::string_view batch(std::span<const Event> events,
                         const veltrano::internal::PropertyMap& base);
  std::string_view base64(std::string_view bytes);

 private:
  rapidjson::StringBuffer json_;
  std::vector<unsigned char> base64_;
};

}  // namespace bench

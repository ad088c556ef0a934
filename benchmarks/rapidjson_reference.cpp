#include "benchmarks/rapidjson_reference.h"

#include <openssl/evp.h>
#include <rapidjson/writer.h>

#include <cstdlib>

namespace bench {
namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

void writeText(Writer& writer, std::string_view text) {
  writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

// Supports the kinds of values in these events.
void writeEntries(Writer& writer, veltrano::internal::PropertyView properties) {
  using veltrano::internal::Kind;
  for (const auto& [key, value] : properties) {
    writeText(writer, key);
    switch (value.kind()) {
      case Kind::String:
        writeText(writer, value.text());
        break;
      case Kind::Int:
        writer.Int64(value.integer());
        break;
      case Kind::Double:
        writer.Double(value.real());
        break;
      case Kind::Bool:
        writer.Bool(value.boolean());
        break;
      case Kind::Dictionary:
        writer.StartObject();
        writeEntries(writer, *veltrano::internal::asProperties(value));
        writer.EndObject();
        break;
      default:
        std::abort();
    }
  }
}

void writeEvent(Writer& writer, const Event& event, const veltrano::internal::PropertyMap& base) {
  writer.StartObject();
  writer.Key("event");
  writeText(writer, event.name);
  writer.Key("properties");
  writer.StartObject();
  writer.Key("time");
  writer.Int64(event.automatic.timeInMilliseconds);
  writer.Key("$wifi");
  writer.Bool(event.automatic.isOnWiFi);
  writeEntries(writer, base.view());
  writeEntries(writer, event.converted.view());
  writer.Key("extra_json");
  writer.StartObject();
  writer.Key("att_auth_status");
  writer.Uint64(event.automatic.trackingAuthorizationStatus);
  writer.EndObject();
  writer.EndObject();
  writer.EndObject();
}

}  // namespace

std::string_view RapidJSONReference::batch(std::span<const Event> events,
                                           const veltrano::internal::PropertyMap& base) {
  json_.Clear();
  Writer writer(json_);
  writer.StartArray();
  for (const Event& event : events) writeEvent(writer, event, base);
  writer.EndArray();
  return {json_.GetString(), json_.GetSize()};
}

std::string_view RapidJSONReference::base64(std::string_view bytes) {
  base64_.resize((bytes.size() + 2) / 3 * 4 + 1);
  const int size =
      EVP_EncodeBlock(base64_.data(), reinterpret_cast<const unsigned char*>(bytes.data()),
                      static_cast<int>(bytes.size()));
  return {reinterpret_cast<const char*>(base64_.data()), static_cast<std::size_t>(size)};
}

}  // namespace bench

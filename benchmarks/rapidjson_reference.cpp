#include "benchmarks/rapidjson_reference.h"

#include <openssl/evp.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

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

struct RapidJSONReference::Buffers {
  rapidjson::StringBuffer json;
  std::vector<unsigned char> base64;
};

RapidJSONReference::RapidJSONReference() : buffers_(*new Buffers) {}

RapidJSONReference::~RapidJSONReference() {
  delete &buffers_;
}

std::string_view RapidJSONReference::batch(std::span<const Event> events,
                                           const veltrano::internal::PropertyMap& base) {
  buffers_.json.Clear();
  Writer writer(buffers_.json);
  writer.StartArray();
  for (const Event& event : events) writeEvent(writer, event, base);
  writer.EndArray();
  return {buffers_.json.GetString(), buffers_.json.GetSize()};
}

std::string_view RapidJSONReference::base64(std::string_view bytes) {
  buffers_.base64.resize((bytes.size() + 2) / 3 * 4 + 1);
  const int size =
      EVP_EncodeBlock(buffers_.base64.data(), reinterpret_cast<const unsigned char*>(bytes.data()),
                      static_cast<int>(bytes.size()));
  return {reinterpret_cast<const char*>(buffers_.base64.data()), static_cast<std::size_t>(size)};
}

}  // namespace bench

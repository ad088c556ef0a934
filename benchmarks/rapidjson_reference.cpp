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

// The kinds of values that the events have.
void writeValue(Writer& writer, const veltrano::SupportedParameterType& value) {
  using Member = veltrano::SupportedParameterType::Member;
  switch (value.member()) {
    case Member::String:
      writeText(writer, *value.getIf<std::string>());
      break;
    case Member::Int:
      writer.Int64(*value.getIf<std::int64_t>());
      break;
    case Member::Double:
      writer.Double(*value.getIf<double>());
      break;
    case Member::Bool:
      writer.Bool(*value.getIf<bool>());
      break;
    case Member::Dictionary:
      writer.StartObject();
      for (const auto& [key, member] : *value.getIf<veltrano::Dictionary>()) {
        writeText(writer, *key.member()->getIf<std::string>());
        writeValue(writer, *member.member());
      }
      writer.EndObject();
      break;
    default:
      std::abort();
  }
}

void writeEntries(Writer& writer, const veltrano::PropertyMap& map) {
  for (const auto& [key, value] : map) {
    writeText(writer, key);
    writeValue(writer, value);
  }
}

void writeEvent(Writer& writer, const Event& event, const veltrano::PropertyMap& base) {
  writer.StartObject();
  writer.Key("event");
  writeText(writer, event.name);
  writer.Key("properties");
  writer.StartObject();
  writer.Key("time");
  writer.Int64(event.automatic.timeInMilliseconds);
  writer.Key("$wifi");
  writer.Bool(event.automatic.isOnWiFi);
  if (event.automatic.carrier) {
    writer.Key("$carrier");
    writeText(writer, *event.automatic.carrier);
  }
  writeEntries(writer, base);
  writeEntries(writer, event.properties);
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
                                           const veltrano::PropertyMap& base) {
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

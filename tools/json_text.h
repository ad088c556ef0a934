// Writes JSON.
#pragma once

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <concepts>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace tools {

inline std::string json(std::string_view text) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer>(buffer).String(
      text.data(), static_cast<rapidjson::SizeType>(text.size()));
  return {buffer.GetString(), buffer.GetSize()};
}

inline std::string json(const char* text) {
  return json(std::string_view(text));
}

template <std::integral Number>
std::string json(Number value) {
  return std::to_string(value);
}

template <>
inline std::string json(bool value) {
  return value ? "true" : "false";
}

inline std::string json(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return {buffer.GetString(), buffer.GetSize()};
}

/// An object of keys and of values, which are JSON already.
template <class Members = std::initializer_list<std::pair<std::string_view, std::string>>>
std::string jsonObject(const Members& members) {
  std::string object;
  for (const auto& [key, value] : members)
    object += (object.empty() ? "{" : ",") + json(key) + ':' + value;
  return object.empty() ? "{}" : object + '}';
}

}  // namespace tools

// JSON in small pieces, for what need not be quick.
#pragma once

#include <concepts>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "encoding/json_writer.h"

namespace veltrano::internal {

/// `text` has to be well-formed.
inline std::string json(std::string_view text) {
  JSONWriter writer;
  writer.string(text);
  return std::string(writer.text());
}

inline std::string json(const char* text) {
  return json(std::string_view(text));
}

template <std::same_as<double> Number>
std::string json(Number number) {
  JSONWriter writer;
  writer.number(number);
  return std::string(writer.text());
}

template <std::integral Number>
std::string json(Number value) {
  return std::to_string(value);
}

template <>
inline std::string json(bool value) {
  return value ? "true" : "false";
}

/// Keys, and values that are JSON already.
using JSONMembers = std::vector<std::pair<std::string, std::string>>;

inline std::string jsonObject(const JSONMembers& members) {
  std::string object;
  for (const auto& [key, value] : members)
    object.append(object.empty() ? "{" : ",").append(json(key)).append(":").append(value);
  return object.empty() ? "{}" : object + '}';
}

/// Of items that are JSON already.
inline std::string jsonArray(const std::vector<std::string>& items) {
  std::string array;
  for (const std::string& item : items) array.append(array.empty() ? "[" : ",").append(item);
  return array.empty() ? "[]" : array + ']';
}

template <class Texts>
std::string jsonTexts(const Texts& texts) {
  std::vector<std::string> items;
  items.reserve(texts.size());
  for (const std::string& text : texts) items.push_back(json(text));
  return jsonArray(items);
}

}  // namespace veltrano::internal

#pragma once

#include <rapidjson/document.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace replay {

/// An error in a step, with a message for the scenario's author.
struct ScenarioError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

using JSONValue = rapidjson::Value;

/// A parsed JSON text that keeps numbers as they were written, because a scenario distinguishes `3`
/// from `3.0`, and a `Float` is the nearest one. Use the functions below for strings and numbers.
class JSONText {
 public:
  /// Throws ScenarioError when `text` is not JSON.
  explicit JSONText(std::string_view text);

  const JSONValue& root() const { return document_; }

 private:
  // Holds numbers as strings. A string proper starts with its quotation mark.
  struct Document : rapidjson::Document {
    bool RawNumber(const char* text, rapidjson::SizeType length, bool);
    bool String(const char* text, rapidjson::SizeType length, bool);
  };

  Document document_;
};

bool isString(const JSONValue& value);
bool isNumber(const JSONValue& value);

/// Whether it is a number without a fraction and an exponent.
bool isInteger(const JSONValue& value);

/// The content of a string, or a number as it was written.
std::string_view textOf(const JSONValue& value);

std::string_view nameOf(const JSONValue::Member& member);

/// The value of `key` in `object`, or null. Among equal keys, the last one wins.
const JSONValue* find(const JSONValue& object, std::string_view key);

}  // namespace replay

#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace replay {

/// An error in a step, with a message for the scenario's author.
struct ScenarioError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// A parsed JSON text that keeps numbers as they were written, because a scenario distinguishes `3`
/// from `3.0`. Values are in one list, each after its container, so that deep nesting needs no
/// recursion.
class JsonText {
 public:
  enum class Kind { null, boolean, number, string, array, object };

  struct Value {
    Kind kind = Kind::null;
    bool flag = false;               // boolean
    std::string text;                // number or string
    std::vector<std::size_t> items;  // array or object: indices in the list
    std::vector<std::string> keys;   // object: one for each item
  };

  /// Throws ScenarioError when `text` is not JSON.
  explicit JsonText(std::string_view text);

  const Value& root() const { return values_.front(); }
  const Value& at(std::size_t place) const { return values_[place]; }
  std::size_t size() const { return values_.size(); }
  std::size_t placeOf(const Value& value) const {
    return static_cast<std::size_t>(&value - values_.data());
  }

  /// The value of `key` in `object`, or null. Among equal keys, the last one wins.
  const Value* find(const Value& object, std::string_view key) const;

 private:
  std::vector<Value> values_;
};

/// Whether a number is written without a fraction and an exponent.
bool isIntegerText(std::string_view text);

/// Parses a number. Throws ScenarioError, naming `what`, when it is out of range.
template <class Number>
Number parsedNumber(std::string_view text, std::string_view what);

}  // namespace replay

#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace replay {

/// What is wrong with a step; the message is for the scenario's author.
struct ScenarioError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// One JSON text, taken apart but with its numbers as they were written: a scenario tells `3` from
/// `3.0`. Its values lie in one list, each behind the container that it is in, so no depth of
/// nesting is a matter of the stack.
class JsonText {
 public:
  enum class Kind { null, boolean, number, string, array, object };

  struct Value {
    Kind kind = Kind::null;
    bool flag = false;               // of a boolean
    std::string text;                // of a number or a string
    std::vector<std::size_t> items;  // of an array or an object: places in the list
    std::vector<std::string> keys;   // of an object, one for each item
  };

  /// Throws ScenarioError when `text` is no JSON.
  explicit JsonText(std::string_view text);

  const Value& root() const { return values_.front(); }
  const Value& at(std::size_t place) const { return values_[place]; }
  std::size_t size() const { return values_.size(); }
  std::size_t placeOf(const Value& value) const {
    return static_cast<std::size_t>(&value - values_.data());
  }

  /// The value under `key` in `object`, or null. Of equal keys, the last one counts.
  const Value* find(const Value& object, std::string_view key) const;

 private:
  std::vector<Value> values_;
};

/// Whether a number was written without fraction and exponent.
bool isIntegerText(std::string_view text);

/// The number that `text` is. Throws ScenarioError, naming `what`, when it is out of range.
template <class Number>
Number parsedNumber(std::string_view text, std::string_view what);

}  // namespace replay

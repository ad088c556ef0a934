#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "encoding/time.h"
#include "tools/replay/json_text.h"
#include "veltrano/value.h"

namespace replay {

/// Reads the fields of a step, or of an object in it. Each reader throws ScenarioError when its
/// field is missing, has the wrong type or is out of range.
class StepFields {
 public:
  StepFields(const JsonText& json, const JsonText::Value& object);

  bool has(std::string_view key) const { return find(key) != nullptr; }
  bool isNull(std::string_view key) const;

  std::string string(std::string_view key) const;
  std::optional<std::string> stringOrNull(std::string_view key) const;
  bool boolean(std::string_view key) const;
  std::int64_t integer(std::string_view key, std::int64_t lowest, std::int64_t highest) const;
  double number(std::string_view key) const;

  /// A number of seconds, rounded to microseconds.
  veltrano::internal::Duration duration(std::string_view key) const;

  veltrano::HostValue value(std::string_view key) const;
  veltrano::HostMap map(std::string_view key) const;
  std::optional<veltrano::HostMap> mapOrNull(std::string_view key) const;

  std::optional<std::vector<std::string>> stringsOrNull(std::string_view key) const;
  std::vector<double> numbers(std::string_view key, std::size_t count) const;
  StepFields object(std::string_view key) const;
  std::vector<StepFields> objects(std::string_view key) const;

  /// The keys of this object, in order.
  const std::vector<std::string>& keys() const { return object_->keys; }

 private:
  const JsonText::Value* find(std::string_view key) const { return json_->find(*object_, key); }
  const JsonText::Value& require(std::string_view key, JsonText::Kind kind,
                                 std::string_view wanted) const;

  const JsonText* json_;
  const JsonText::Value* object_;
};

}  // namespace replay

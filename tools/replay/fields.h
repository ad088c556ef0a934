#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "encoding/time.h"
#include "tools/replay/json.h"
#include "veltrano/value.h"

namespace replay {

/// Reads the fields of a step, or of an object in it, which has to outlive this. Each reader throws
/// ScenarioError when its field is missing, has the wrong type or is out of range.
class Fields {
 public:
  explicit Fields(const JSONValue& object);

  bool has(std::string_view key) const { return find(*object_, key) != nullptr; }

  /// T is a type that `read` below takes. A std::optional is for a field that may be null.
  template <class T>
  T get(std::string_view key) const {
    T value{};
    read(key, value);
    return value;
  }

  /// Leaves `value` as it is if the field is missing.
  template <class T>
  void getIfThere(std::string_view key, T& value) const {
    if (has(key)) read(key, value);
  }

  std::int64_t integer(std::string_view key, std::int64_t lowest, std::int64_t highest) const;
  Fields object(std::string_view key) const;
  std::vector<Fields> objects(std::string_view key) const;

 private:
  template <class Is>
  const JSONValue& require(std::string_view key, Is is, const char* wanted) const;
  bool isNull(std::string_view key) const;

  void read(std::string_view key, bool& value) const;
  void read(std::string_view key, int& value) const;
  void read(std::string_view key, double& value) const;
  void read(std::string_view key, std::string& value) const;
  void read(std::string_view key, std::optional<std::string>& value) const;
  void read(std::string_view key, std::optional<std::vector<std::string>>& value) const;
  void read(std::string_view key, std::vector<double>& value) const;
  void read(std::string_view key, std::map<std::string, double>& value) const;
  void read(std::string_view key, veltrano::internal::Duration& value) const;
  void read(std::string_view key, veltrano::HostValue& value) const;
  void read(std::string_view key, veltrano::HostMap& value) const;
  void read(std::string_view key, std::optional<veltrano::HostMap>& value) const;

  const JSONValue* object_;
};

}  // namespace replay

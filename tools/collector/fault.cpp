#include "tools/collector/fault.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <stdexcept>
#include <utility>

#include "encoding/json_text.h"
#include "tools/collector/wire_check.h"

namespace collector {
namespace {

using rapidjson::Value;
using namespace veltrano::internal;

[[noreturn]] void refuse(const std::string& reason) {
  throw std::invalid_argument(reason);
}

std::uint64_t integer(const std::string& key, const Value& value, std::uint64_t minimum,
                      std::uint64_t maximum) {
  if (!value.IsUint64() || value.GetUint64() < minimum || value.GetUint64() > maximum)
    refuse("\"" + key + "\" is not an integer from " + std::to_string(minimum) + " to " +
           std::to_string(maximum));
  return value.GetUint64();
}

bool flag(const std::string& key, const Value& value) {
  if (!value.IsBool()) refuse("\"" + key + "\" is neither true nor false");
  return value.GetBool();
}

std::string text(const std::string& key, const Value& value) {
  if (!value.IsString()) refuse("\"" + key + "\" is not a string");
  return {value.GetString(), value.GetStringLength()};
}

std::string backOffBody(const std::string& key, const Value& value) {
  if (!value.IsNumber()) refuse("\"" + key + "\" is not a number");
  return jsonObject({{key, jsonOf(value)}});
}

void add(Value& description, FaultsByPath& faults) {
  if (!description.IsObject()) refuse("a fault is described by an object");
  std::string path;
  Fault fault;
  std::optional<bool> accept;
  for (const auto& [name, value] : std::as_const(description).GetObject()) {
    const std::string key = name.GetString();
    if (key == "path") {
      path = text(key, value);
    } else if (key == "status") {
      fault.status = int(integer(key, value, 200, 599));
    } else if (key == "latency_ms") {
      fault.latency = std::chrono::milliseconds(integer(key, value, 0, 600'000));
    } else if (key == "drop") {
      fault.drop = flag(key, value);
    } else if (key == "truncate") {
      fault.truncate = flag(key, value);
    } else if (key == "back_off_seconds") {
      fault.body = backOffBody(key, value);
    } else if (key == "body") {
      fault.body = text(key, value);
    } else if (key == "retry_after") {
      fault.retryAfter = text(key, value);
    } else if (key == "accept") {
      accept = flag(key, value);
    } else if (key == "count") {
      fault.count = integer(key, value, 1, UINT64_MAX);
    } else {
      refuse("a fault has no \"" + key + "\"");
    }
  }
  if (path != "/track" && path != "/heartbeat") refuse("\"path\" is neither /track nor /heartbeat");

  // By default, a request counts as accepted if its sender can see that it succeeded.
  const int lastSuccess = path == "/track" ? 200 : 299;
  fault.accept =
      accept.value_or(!fault.drop && !fault.truncate && fault.status.value_or(200) <= lastSuccess);
  auto& ofPath = faults[path];
  if (description.MemberCount() == 1) return ofPath.clear();
  while (description.HasMember("count")) description.RemoveMember("count");
  fault.description = jsonOf(description);
  ofPath.push_back(fault);
}

}  // namespace

FaultsByPath parseFaults(std::string_view json) {
  rapidjson::Document document;
  document.Parse<rapidjson::kParseIterativeFlag>(json.data(), json.size());
  if (document.HasParseError())
    refuse(std::string("the faults are not JSON: ") +
           rapidjson::GetParseError_En(document.GetParseError()));
  FaultsByPath faults;
  if (document.IsArray()) {
    for (Value& description : document.GetArray()) add(description, faults);
  } else {
    add(document, faults);
  }
  return faults;
}

std::string faultsJSON(const FaultsByPath& faults) {
  std::string array = "[";
  for (const auto& [path, ofPath] : faults)
    for (const Fault& fault : ofPath) {
      if (array.size() > 1) array += ',';
      array += fault.description;
      if (fault.count)
        array.replace(array.size() - 1, 1, ",\"count\":" + std::to_string(*fault.count) + "}");
    }
  return array + "]";
}

Fault takeFault(FaultsByPath& faults, const std::string& path) {
  auto& ofPath = faults[path];
  if (ofPath.empty()) return {};
  Fault fault = ofPath.front();
  if (fault.count && --*ofPath.front().count == 0) ofPath.pop_front();
  return fault;
}

}  // namespace collector

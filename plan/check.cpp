// Compares what is sent with what is planned.
#include "encoding/rapidjson_settings.h"
// Its own engine ignores a pattern that it does not understand, such as one with \d.
#define RAPIDJSON_SCHEMA_USE_INTERNALREGEX 0
// The settings come first.
#include <rapidjson/document.h>
#include <rapidjson/schema.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <iterator>

#include "plan/plan.h"

namespace veltrano::planning {

namespace rapidjson = internal::rapidjson;
using rapidjson::Value;

/// A schema of draft 4, compiled.
class Validator {
 public:
  explicit Validator(const std::string& draft4) : document_(parsed(draft4)), schema_(document_) {}

  bool accepts(const Value& value) const {
    rapidjson::SchemaValidator validator(schema_);
    return value.Accept(validator) && validator.IsValid();
  }

 private:
  static rapidjson::Document parsed(const std::string& json) {
    rapidjson::Document document;
    document.Parse(json.data(), json.size());
    return document;
  }

  const rapidjson::Document document_;
  const rapidjson::SchemaDocument schema_;
};

namespace {

// Of a text that is compared with a pattern: std::regex recurses for each character.
constexpr std::size_t kMaxText = 2000;

// More than the library sends. Bounds the recursion.
constexpr int kMaxDepth = 160;

constexpr char kSuper[] = "super properties";

std::string_view view(const Value& text) {
  return {text.GetString(), text.GetStringLength()};
}

bool isDeeper(const Value& value, int levels) {
  if (levels == 0) return true;
  if (value.IsArray())
    return std::any_of(value.Begin(), value.End(),
                       [&](const Value& element) { return isDeeper(element, levels - 1); });
  return value.IsObject() && std::any_of(value.MemberBegin(), value.MemberEnd(), [&](auto& member) {
           return isDeeper(member.value, levels - 1);
         });
}

std::string shortJSON(const Value& value) {
  constexpr std::size_t kMost = 100;
  if (isDeeper(value, kMaxDepth)) return "too deep";
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  std::string json(buffer.GetString(), buffer.GetSize());
  if (json.size() <= kMost) return json;
  std::size_t end = kMost;
  while ((json[end] & 0xC0) == 0x80) --end;  // between characters
  return json.substr(0, end) + "...";
}

class Check {
 public:
  // What an object is held to, and how its coverage starts: with the event, and without indices.
  struct Part {
    const Schema& schema;
    std::string item;
    bool isSuper;
  };

  Check(std::string event, Coverage& covered) : event_(std::move(event)), covered_(covered) {}

  void object(const std::vector<Part>& parts, const Value& value, const std::string& path) {
    const auto pathTo = [&](const std::string& name) {
      return path.empty() ? name : path + '.' + name;
    };
    for (const Part& part : parts)
      for (const auto& [name, schema, isRequired] : part.schema.properties)
        if (isRequired && value.FindMember(name.c_str()) == value.MemberEnd())
          complain(pathTo(name), "is missing", schema.text(), part.isSuper);
    for (const auto& [key, held] : value.GetObject()) {
      const std::string name(view(key));
      if (path.empty() && isLibrarysProperty(name)) continue;
      bool isPlanned = false;
      for (const Part& part : parts)
        for (const Property& property : part.schema.properties)
          if (property.name == name) {
            const std::string item = part.item + '.' + name;
            if (!property.isRequired) covered_.insert('p' + item);
            check({property.schema, item, part.isSuper}, held, pathTo(name));
            isPlanned = true;
          }
      isPlanned |= std::any_of(parts.begin(), parts.end(),
                               [](const Part& part) { return part.schema.isOpen; });
      if (!isPlanned) complain(pathTo(name), "is " + shortJSON(held), "no such property", false);
    }
  }

  void complain(const std::string& path, const std::string& sent, const std::string& planned,
                bool isSuper) {
    found_.push_back({path,
                      event_ + ": " + (isSuper ? "the super property " : "") + quoted(path) + ' ' +
                          sent + "; planned: " + planned,
                      isSuper});
  }

  std::vector<Violation> found() { return std::move(found_); }

 private:
  void check(const Part& part, const Value& value, const std::string& path) {
    const Schema& schema = part.schema;
    if (schema.type == Type::any) return;
    const bool hasPattern =
        !schema.pattern.empty() || schema.type == Type::uri || schema.type == Type::date;
    if (hasPattern && value.IsString() && value.GetStringLength() > kMaxText)
      return complain(path, "is too long to be compared", schema.text(), part.isSuper);
    if (schema.validator == nullptr) schema.validator = std::make_shared<Validator>(schema.draft4);
    if (isDeeper(value, kMaxDepth) || !schema.validator->accepts(value))
      return complain(path, "is " + shortJSON(value), schema.text(), part.isSuper);
    if (!schema.values.empty()) covered_.insert('v' + part.item + " = " + std::string(view(value)));
    if (schema.type == Type::object) object({part}, value, path);
    if (schema.type != Type::list) return;
    int index = 0;
    for (const Value& element : value.GetArray())
      check({schema.element[0], part.item, part.isSuper}, element,
            path + '[' + std::to_string(index++) + ']');
  }

  const std::string event_;
  Coverage& covered_;
  std::vector<Violation> found_;
};

void addCoverable(Coverage& items, const Schema& schema, const std::string& path) {
  for (const Property& property : schema.properties) {
    const std::string inner = path + '.' + property.name;
    if (!property.isRequired) items.insert('p' + inner);
    const Schema* held = &property.schema;
    while (!held->element.empty()) held = &held->element[0];
    for (const std::string& value : held->values)
      items.insert(std::string("v").append(inner).append(" = ").append(value));
    addCoverable(items, *held, inner);
  }
}

}  // namespace

std::vector<Violation> Plan::check(std::string_view record, Coverage& covered) const {
  rapidjson::Document document;
  document.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag>(
      record.data(), record.size());
  const Value& root = document;
  if (document.HasParseError() || !root.IsObject() || !root.HasMember("event") ||
      !root["event"].IsString() || !root.HasMember("properties") || !root["properties"].IsObject())
    return {};
  const std::string event(view(root["event"]));
  const Value& properties = root["properties"];
  if (isLibrarysEvent(event)) return {};
  Check check(event, covered);
  const auto planned =
      std::find_if(events.begin(), events.end(), [&](const Event& it) { return it.name == event; });
  if (planned == events.end()) {
    std::string sent;
    for (const auto& [key, value] : properties.GetObject())
      if (!isLibrarysProperty(view(key)))
        sent.append(sent.empty() ? "" : ", ")
            .append(view(key))
            .append("=")
            .append(shortJSON(value));
    return {
        {"",
         event + " is sent with " + (sent.empty() ? "nothing" : sent) + "; planned: no such event",
         false}};
  }
  covered.insert('e' + event);
  check.object({{planned->schema, event, false}, {superProperties, kSuper, true}}, properties, "");
  return check.found();
}

Coverage Plan::coverable() const {
  Coverage items;
  for (const Event& event : events) {
    items.insert('e' + event.name);
    addCoverable(items, event.schema, event.name);
  }
  addCoverable(items, superProperties, kSuper);
  return items;
}

bool isLibrarysEvent(std::string_view name) {
  constexpr std::string_view kNames[] = {"Device Orientation Changed", "Heartbeat Failed",
                                         "Screen Orientation Changed", "heartbeat"};
  return std::find(std::begin(kNames), std::end(kNames), name) != std::end(kNames);
}

bool isLibrarysProperty(std::string_view name) {
  constexpr std::string_view kNames[] = {
      "app_id",  "device_orientation", "extra_json", "lib_version", "mp_lib",
      "pub_uid", "screen_orientation", "time",       "uid"};
  return name.substr(0, 1) == "$" ||
         std::find(std::begin(kNames), std::end(kNames), name) != std::end(kNames);
}

}  // namespace veltrano::planning

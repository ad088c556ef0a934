// Compares what is sent with what is planned.
#include "encoding/rapidjson_settings.h"
// The settings come first.
#include <rapidjson/document.h>
#include <rapidjson/schema.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <regex>

#include "plan/plan.h"

namespace veltrano::planning {
namespace {

namespace rapidjson = internal::rapidjson;
using rapidjson::Value;

// The schema in JSON Schema's draft 4, without properties, elements, formats and the pattern:
// RapidJSON compares a pattern with bytes, if at all.
std::string draft4(const Schema& schema) {
  internal::JSONMembers members{{"type", inQuotes(jsonTypeOf(schema.type))}};
  for (const auto& [word, value, end] : {schema.least, schema.most}) {
    const bool isExclusive = word[0] == 'e';
    if (isExclusive) members.emplace_back(word, "true");
    if (!word.empty())
      members.emplace_back(isExclusive ? 'm' + word.substr(sizeof "exclusive") : word,
                           numberText(value));
  }
  if (!schema.values.empty()) members.emplace_back("enum", internal::jsonTexts(schema.values));
  return internal::jsonObject(members);
}

// Not with std::regex, which recurses for each character.
bool isURI(std::string_view text) {
  const std::string_view scheme = text.substr(0, text.find(':'));
  const auto isOfScheme = [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '+' || c == '-' || c == '.';
  };
  return scheme.size() < text.size() && std::isalpha(static_cast<unsigned char>(text[0])) != 0 &&
         std::all_of(scheme.begin(), scheme.end(), isOfScheme) &&
         text.find_first_of(" <>\"") == text.npos;
}

}  // namespace

/// A schema, compiled.
class Validator {
 public:
  explicit Validator(const Schema& schema)
      : schema_(rapidjson::Document().Parse(draft4(schema).c_str())),
        pattern_(codePoints(schema.type == Type::date ? kDate : schema.pattern)),
        isURI_(schema.type == Type::uri) {}

  bool accepts(const Value& value) const {
    rapidjson::SchemaValidator validator(schema_);
    return value.Accept(validator) && validator.IsValid() &&
           (!value.IsString() || (std::regex_search(codePoints(view(value)), pattern_) &&
                                  (!isURI_ || isURI(view(value)))));
  }

 private:
  const rapidjson::SchemaDocument schema_;
  const std::wregex pattern_;
  const bool isURI_;
};

namespace {

// Of a text that is compared with a pattern: std::regex recurses for each character.
constexpr std::size_t kMaxText = 2000;

constexpr char kSuper[] = "super properties";

std::string shortJSON(const Value& value) {
  constexpr std::size_t kMost = 100;
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  std::string_view json(buffer.GetString(), buffer.GetSize());
  if (json.size() <= kMost) return std::string(json);
  json = json.substr(0, kMost);
  while ((json.back() & 0xC0) == 0x80) json.remove_suffix(1);  // ends before a character
  return std::string(json.substr(0, json.size() - 1)) + "...";
}

// Items of coverage.
std::string inside(std::string item, std::string_view name) {
  return item.append(1, '\t').append(name);
}
std::string ofValue(const std::string& item, std::string_view value) {
  return ('v' + item).append("\t= ").append(value);
}

class Check {
 public:
  // What a value is held to. The item of coverage, without its mark, is the event, or the super
  // properties, and the names that lead to the value, without indices.
  struct Part {
    const Schema& schema;
    std::string item;
  };

  explicit Check(Checked& checked) : checked_(checked) {}

  void object(const std::vector<Part>& parts, const Value& value, const std::string& path) {
    const std::string start = path.empty() ? "" : path + '.';
    for (const auto& [part, item] : parts)
      for (const auto& [name, schema, isRequired] : part.properties)
        if (isRequired && !value.HasMember(name.c_str()))
          complain({schema, inside(item, name)}, start + name, "is missing");
    for (const auto& [key, held] : value.GetObject()) {
      const std::string name(view(key));
      if (path.empty() && isLibrarysProperty(name)) continue;
      bool isPlanned = false;
      for (const auto& [part, item] : parts) {
        isPlanned |= part.isOpen;
        for (const Property& property : part.properties)
          if (property.name == name) {
            const std::string inner = inside(item, name);
            if (!property.isRequired) checked_.covered.insert('p' + inner);
            check({property.schema, inner}, held, start + name);
            isPlanned = true;
          }
      }
      if (!isPlanned)
        complain({parts[0].schema, inside(parts[0].item, name)}, start + name, "is ", &held,
                 "no such property");
    }
  }

  std::vector<std::string> found;

 private:
  void complain(const Part& part, const std::string& path, const std::string& fault,
                const Value* value = nullptr, const char* planned = nullptr) {
    if (!checked_.complaints.insert(part.item + ' ' + fault).second) return;
    found.push_back(part.item.substr(0, part.item.find('\t')) + ": " + inQuotes(path) + ' ' +
                    fault + (value != nullptr ? shortJSON(*value) : "") +
                    "; planned: " + (planned != nullptr ? planned : part.schema.text()));
  }

  void check(const Part& part, const Value& value, const std::string& path) {
    const auto& [schema, item] = part;
    if (schema.type == Type::any) return;
    const bool hasPattern = !schema.pattern.empty() || schema.type == Type::date;
    if (hasPattern && value.IsString() && value.GetStringLength() > kMaxText)
      return complain(part, path, "is too long to be compared");
    if (schema.validator == nullptr) schema.validator = std::make_shared<Validator>(schema);
    if (!schema.validator->accepts(value)) return complain(part, path, "is ", &value);
    if (!schema.values.empty()) checked_.covered.insert(ofValue(item, view(value)));
    if (schema.type == Type::object) object({part}, value, path);
    for (std::size_t i = 0; schema.type == Type::list && i < value.Size(); ++i)
      check({schema.element[0], item}, value[i], path + '[' + std::to_string(i) + ']');
  }

  Checked& checked_;
};

void addCoverable(Coverage& items, const Schema& schema, const std::string& path) {
  for (const auto& [name, held, isRequired] : schema.properties) {
    const std::string inner = inside(path, name);
    if (!isRequired) items.insert('p' + inner);
    for (const std::string& value : held.innermost().values) items.insert(ofValue(inner, value));
    addCoverable(items, held.innermost(), inner);
  }
}

}  // namespace

std::vector<std::string> Plan::check(std::string_view record, Checked& checked) const {
  rapidjson::Document document;
  document.Parse<rapidjson::kParseIterativeFlag>(record.data(), record.size());
  const Value& root = document;
  if (!root.IsObject() || !root.HasMember("event") || !root["event"].IsString() ||
      !root.HasMember("properties") || !root["properties"].IsObject())
    return {};
  const std::string event(view(root["event"]));
  if (isLibrarysEvent(event)) return {};
  const auto planned =
      std::find_if(events.begin(), events.end(), [&](const Event& it) { return it.name == event; });
  Check check(checked);
  if (planned == events.end()) {
    if (!checked.complaints.insert(event).second) return {};
    return {event + " is sent; planned: no such event"};
  }
  checked.covered.insert('e' + event);
  check.object({{planned->schema, event}, {superProperties, kSuper}}, root["properties"], "");
  return std::move(check.found);
}

std::wstring codePoints(std::string_view text) {
  rapidjson::MemoryStream in(text.data(), text.size());
  std::wstring points;
  for (unsigned point; in.Tell() < text.size() && rapidjson::UTF8<>::Decode(in, &point);)
    points += static_cast<wchar_t>(point);
  return points;
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

// Compares what is sent with what is planned.

// The most states of a compiled pattern: bounds the recursion and the time of a match.
#define _GLIBCXX_REGEX_STATE_LIMIT 5000

#include "encoding/rapidjson_settings.h"
// The settings come first.
#include <rapidjson/document.h>
#include <rapidjson/schema.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
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
  for (const auto& [word, value, end] : {schema.least, schema.most})
    if (!word.empty())  // also of an exclusive bound, the last value that it allows
      members.emplace_back(word[0] == 'e' ? 'm' + word.substr(sizeof "exclusive") : word,
                           numberText(end));
  if (!schema.values.empty()) members.emplace_back("enum", internal::jsonTexts(schema.values));
  return internal::jsonObject(members);
}

// Gives the patterns' engine a type of its own, so that its limit of states does not become that of
// the host's wregex.
struct CodePoints : std::regex_traits<wchar_t> {};
using Pattern = std::basic_regex<wchar_t, CodePoints>;

// By default, libstdc++ recurses for each character and backtracks without end. Its other engine
// goes through a text once. The name is reserved, but there is no other.
#ifdef __GLIBCXX__
constexpr auto kEngine = Pattern::ECMAScript | std::regex_constants::__polynomial;
#else
constexpr auto kEngine = Pattern::ECMAScript;
#endif

// Matches a text that has the pattern somewhere: to search starts again at each character.
Pattern anywhere(std::string_view pattern) {
  return Pattern(L"[^]*(?:" + codePoints(pattern) + L")[^]*", kEngine);
}

constexpr char kURI[] = "^[A-Za-z][A-Za-z0-9+.-]*:[^ <>\"]*$";

}  // namespace

/// A schema, compiled.
class Validator {
 public:
  explicit Validator(const Schema& schema)
      : schema_(rapidjson::Document().Parse<rapidjson::kParseFullPrecisionFlag>(
            draft4(schema).c_str())) {
    for (const std::string& pattern :
         {std::string(schema.type == Type::date ? kDate : ""),
          std::string(schema.type == Type::uri ? kURI : ""), schema.pattern})
      if (!pattern.empty()) patterns_.push_back(anywhere(pattern));
  }

  bool accepts(const Value& value) const {
    rapidjson::SchemaValidator validator(schema_);
    return value.Accept(validator) && validator.IsValid() &&
           std::all_of(patterns_.begin(), patterns_.end(), [&](const Pattern& pattern) {
             return std::regex_match(codePoints(view(value)), pattern);
           });
  }

 private:
  const rapidjson::SchemaDocument schema_;
  std::vector<Pattern> patterns_;  // of a text
};

namespace {

// Of a text that is matched against a pattern, in bytes: bounds the time.
constexpr std::size_t kMaxText = 2000;

constexpr char kSuper[] = "super properties";

std::string shortJSON(const Value& value) {
  constexpr std::size_t kMost = 100;
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  std::string json(buffer.GetString(), buffer.GetSize());
  if (json.size() <= kMost) return json;
  std::size_t end = kMost;
  while ((json[end] & 0xC0) == 0x80) --end;  // between characters
  return json.substr(0, end) + "...";
}

// Items of coverage.
std::string inside(std::string item, std::string_view name) {
  return item.append(1, '\t').append(name);
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
          complain(inside(item, name), start + name, "is missing; planned: ", schema.text());
    for (const auto& [key, held] : value.GetObject()) {
      const std::string name(view(key));
      if (path.empty() && isLibrarysProperty(name)) continue;
      bool isPlanned = false;
      for (const auto& [part, item] : parts) {
        const Property* const property = find(part.properties, name);
        isPlanned |= part.isOpen || property != nullptr;
        if (property == nullptr) continue;
        const std::string inner = inside(item, name);
        const int faults = faults_;
        check({property->schema, inner}, held, start + name);
        if (faults_ == faults && !property->isRequired) checked_.covered.insert('p' + inner);
      }
      if (!isPlanned)
        complain(inside(parts[0].item, name), start + name,
                 "is not a planned property; sent: ", shortJSON(held));
    }
  }

  std::vector<std::string> found;

 private:
  void complain(const std::string& item, const std::string& path, const std::string& fault,
                const std::string& details) {
    ++faults_;
    if (checked_.complaints.insert(item + ' ' + fault).second)
      found.push_back(item.substr(0, item.find('\t')) + ": " + inQuotes(path) + ' ' + fault +
                      details);
  }

  void check(const Part& part, const Value& value, const std::string& path) {
    const auto& [schema, item] = part;
    if (schema.type == Type::any) return;
    if (!schema.pattern.empty() && value.IsString() && value.GetStringLength() > kMaxText)
      return complain(item, path, "is too long to match against the pattern",
                      " (over " + std::to_string(kMaxText) + " bytes)");
    if (schema.validator == nullptr) schema.validator = std::make_shared<Validator>(schema);
    if (!schema.validator->accepts(value))
      return complain(item, path, "is ", shortJSON(value) + "; planned: " + schema.text());
    if (!schema.values.empty())
      checked_.covered.insert('v' + inside(item, "= ").append(view(value)));
    if (schema.type == Type::object) object({part}, value, path);
    for (std::size_t i = 0; schema.type == Type::list && i < value.Size(); ++i)
      check({schema.element[0], item}, value[i], path + '[' + std::to_string(i) + ']');
  }

  Checked& checked_;
  int faults_ = 0;  // also those that have been complained about before
};

void addCoverable(Coverage& items, const Schema& schema, const std::string& path) {
  for (const auto& [name, held, isRequired] : schema.properties) {
    const std::string inner = inside(path, name);
    if (!isRequired) items.insert('p' + inner);
    for (const std::string& value : held.innermost().values)
      items.insert('v' + inside(inner, "= " + value));
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
  const Event* const planned = find(events, event);
  Check check(checked);
  if (planned == nullptr) {
    if (!checked.complaints.insert(event).second) return {};
    return {event + ": not a planned event"};
  }
  checked.covered.insert('e' + event);
  check.object({{planned->schema, event}, {superProperties, kSuper}}, root["properties"], "");
  return std::move(check.found);
}

std::string faultOfPattern(std::string_view pattern) {
  constexpr std::size_t kMost = 256;  // bounds the recursion of its compilation
  if (pattern.size() > kMost) return "the pattern is too long";
  try {
    Pattern(codePoints(pattern), kEngine), anywhere(pattern);
  } catch (const std::regex_error& error) {
    return std::string("the pattern cannot be checked: ") + error.what();
  }
  return {};
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

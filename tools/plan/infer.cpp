// A first plan from what a collector has written.
#include "encoding/rapidjson_settings.h"
// The settings come first.
#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <map>
#include <regex>
#include <sstream>

#include "plan/names.h"
#include "tools/plan/commands.h"

namespace veltrano::planning {
namespace {

namespace rapidjson = internal::rapidjson;
using internal::JSONMembers;
using internal::jsonObject;
using rapidjson::Value;

constexpr std::size_t kFew = 5;         // too few to be sure
constexpr std::size_t kMostValues = 8;  // of an enumeration
constexpr int kMaxNesting = 8;

Type typeOf(const Value& value, int depth) {
  static const std::regex dates(kDate);
  static const std::regex links("https?://[^ <>\"]+");
  constexpr std::size_t kLong = 1000;  // std::regex recurses for each character
  if (value.IsString() && value.GetStringLength() < kLong) {
    const std::string_view text = view(value);
    if (std::regex_match(text.begin(), text.end(), dates)) return Type::date;
    if (std::regex_match(text.begin(), text.end(), links)) return Type::uri;
  }
  if (value.IsInt64()) return Type::integer;
  if (depth == kMaxNesting && (value.IsArray() || value.IsObject())) return Type::any;
  constexpr Type kTypes[] = {Type::any,  Type::boolean, Type::boolean, Type::object,
                             Type::list, Type::text,    Type::number};  // by rapidjson::Type
  return kTypes[value.GetType()];
}

// What has been seen under one name.
struct Seen {
  std::size_t count = 0;
  std::set<Type> types;  // `any` is null
  std::set<std::string> texts;
  std::map<std::string, Seen> properties;
  std::vector<Seen> element;  // one for all elements of lists

  void add(const Value& value, int depth = 0) {
    ++count;
    const Type type = typeOf(value, depth);
    types.insert(type);
    if (value.IsString() && texts.size() <= kMostValues) texts.emplace(view(value));
    if (type == Type::object)
      for (const auto& [key, held] : value.GetObject())
        if (depth > 0 || !isLibrarysProperty(view(key)))
          properties[std::string(view(key))].add(held, depth + 1);
    if (type != Type::list) return;
    element.resize(1);
    for (const Value& held : value.GetArray()) element[0].add(held, depth + 1);
  }
};

class Author {
 public:
  // Leaves out what is taken, and what no plan can hold.
  Author(const std::set<std::string>& taken, std::vector<std::string>& leftOut)
      : taken_(taken), leftOut_(leftOut) {}

  std::string plan(const std::map<std::string, Seen>& events, const Seen& all,
                   const std::string& nameSpace) {
    const Seen super = superOf(events, all);
    std::vector<std::string> list;
    for (const auto& [name, seen] : events) {
      if (isLibrarysEvent(name) || !isUsable(name, name)) continue;
      JSONMembers event{{"name", inQuotes(name)}};
      if (seen.count < kFew) addDoubt(event, "few events: " + std::to_string(seen.count));
      addProperties(event, seen, super, name);
      list.push_back(jsonObject(event));
    }
    JSONMembers held;
    addProperties(held, super, {}, "the super properties");
    return jsonObject({{"namespace", inQuotes(nameSpace)},
                       {"superProperties", jsonObject(held)},
                       {"events", internal::jsonArray(list)}});
  }

 private:
  // What several events have, and none lacks, is probably a super property.
  static Seen superOf(const std::map<std::string, Seen>& events, const Seen& all) {
    constexpr std::size_t kSeveral = 3;
    Seen super;
    super.count = all.count;
    for (const auto& property : all.properties)
      if (events.size() >= kSeveral &&
          std::all_of(events.begin(), events.end(), [&](const auto& event) {
            return event.second.properties.count(property.first) > 0;
          }))
        super.properties.insert(property);
    return super;
  }

  void addProperties(JSONMembers& schema, const Seen& object, const Seen& except,
                     const std::string& of) {
    JSONMembers properties;
    std::set<std::string> required;
    bool isWhole = true;
    for (const auto& [name, seen] : object.properties) {
      if (except.properties.count(name) > 0) continue;
      const std::string path = std::string(of).append(".").append(name);
      if (!isUsable(name, path)) {
        isWhole = false;
        continue;
      }
      if (seen.count == object.count) required.insert(name);
      properties.emplace_back(name, jsonObject(schemaOf(seen, path)));
    }
    if (!isWhole) {
      schema.emplace_back("additionalProperties", "true");
      addDoubt(schema, "some properties are left out");
    }
    schema.emplace_back("properties", jsonObject(properties));
    if (!required.empty()) schema.emplace_back("required", internal::jsonTexts(required));
  }

  JSONMembers schemaOf(const Seen& seen, const std::string& path) {
    JSONMembers schema;
    std::set<Type> types = seen.types;
    if (types.count(Type::number) > 0) types.erase(Type::integer);
    if (types.count(Type::text) > 0) types.erase(Type::date), types.erase(Type::uri);
    const Type type = types.size() == 1 ? *types.begin() : Type::any;
    if (type == Type::any)
      return addDoubt(schema, "seen with values of several types, or null"), schema;
    schema.emplace_back("type", inQuotes(jsonTypeOf(type)));
    if (type == Type::date) schema.emplace_back("format", inQuotes("date-time"));
    if (type == Type::uri) schema.emplace_back("format", inQuotes("uri"));
    if (type == Type::object) addProperties(schema, seen, {}, path);
    if (type == Type::list && seen.element[0].count > 0)
      schema.emplace_back("items", jsonObject(schemaOf(seen.element[0], path)));
    const auto isUsable = [&](const std::string& text) {
      return faultOfName(text).empty() && taken_.count(path + " = " + text) == 0;
    };
    if (type == Type::text && seen.texts.size() <= kMostValues && seen.count >= kFew &&
        seen.count >= 3 * seen.texts.size() &&
        std::all_of(seen.texts.begin(), seen.texts.end(), isUsable)) {
      schema.emplace_back("enum", internal::jsonTexts(seen.texts));
      addDoubt(schema, "the only values of " + std::to_string(seen.count));
    }
    return schema;
  }

  bool isUsable(const std::string& name, const std::string& path) {
    std::string fault = faultOfName(name);
    if (taken_.count(path) > 0) fault = inQuotes(path) + " maps to the identifier of another name";
    if (!fault.empty()) leftOut_.push_back("left out: " + fault);
    return fault.empty();
  }

  static void addDoubt(JSONMembers& schema, const std::string& why) {
    for (auto& [key, text] : schema)
      if (key == "$comment") return void(text.insert(text.size() - 1, "; " + why));
    schema.emplace_back("$comment", inQuotes("doubtful: " + why));
  }

  const std::set<std::string>& taken_;
  std::vector<std::string>& leftOut_;
};

// Line by line.
std::string pretty(const std::string& json) {
  rapidjson::StringBuffer text;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(text);
  rapidjson::Document().Parse(json.data(), json.size()).Accept(writer);
  return std::string(text.GetString()) + '\n';
}

}  // namespace

std::string inferred(const std::string& lines, const std::string& file,
                     const std::string& nameSpace, std::vector<std::string>& leftOut) {
  // Tells a fault of the namespace before those of what is inferred.
  Plan::parse(jsonObject({{"namespace", inQuotes(nameSpace)}, {"events", "[]"}}), "--namespace");
  std::map<std::string, Seen> events;
  Seen all;
  std::istringstream in(lines);
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    if (line.empty()) continue;
    rapidjson::Document request;
    request.Parse<rapidjson::kParseIterativeFlag>(line.data(), line.size());
    if (!request.IsObject() || !request.HasMember("body"))
      throw std::runtime_error(file + ':' + std::to_string(number) + ": not a collector's line");
    if (!request["body"].IsArray()) continue;  // a heartbeat
    for (const Value& record : request["body"].GetArray())
      if (record.IsObject() && record.HasMember("event") && record["event"].IsString() &&
          record.HasMember("properties"))
        for (Seen* const seen : {&all, &events[std::string(view(record["event"]))]})
          seen->add(record["properties"]);
  }
  if (events.empty()) throw std::runtime_error(file + ": no events");
  for (std::set<std::string> taken;;) {
    leftOut.clear();
    const std::string plan = pretty(Author(taken, leftOut).plan(events, all, nameSpace));
    try {
      return Plan::parse(plan, "the inferred plan"), plan;
    } catch (const Faults& faults) {
      const std::size_t before = taken.size();
      taken.insert(faults.taken.begin(), faults.taken.end());
      if (taken.size() == before) throw;
    }
  }
}

}  // namespace veltrano::planning

// A first plan from what a collector has written.
#include "encoding/rapidjson_settings.h"
// The settings come first.
#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <regex>
#include <sstream>

#include "plan/names.h"
#include "tools/plan/commands.h"

namespace veltrano::planning {
namespace {

namespace rapidjson = internal::rapidjson;
using rapidjson::Value;
using Writer = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

constexpr std::size_t kFew = 5;         // too few to be sure
constexpr std::size_t kMostValues = 8;  // of an enumeration
constexpr int kMaxNesting = 8;

// What has been seen under one name.
struct Seen {
  std::size_t count = 0;
  std::map<Type, std::size_t> types;  // `any` is null
  std::map<std::string, std::size_t> texts;
  std::map<std::string, Seen> properties;
  std::vector<Seen> element;  // one for all elements of lists

  void add(const Value& value, int depth = 0) {
    ++count;
    ++types[typeOf(value, depth)];
    if (value.IsString() && texts.size() <= kMostValues)
      ++texts[{value.GetString(), value.GetStringLength()}];
    if (depth == kMaxNesting) return;
    if (value.IsObject())
      for (const auto& [key, held] : value.GetObject())
        properties[{key.GetString(), key.GetStringLength()}].add(held, depth + 1);
    if (!value.IsArray()) return;
    element.resize(1);
    for (const Value& held : value.GetArray()) element[0].add(held, depth + 1);
  }

  static Type typeOf(const Value& value, int depth) {
    static const std::regex dates("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d(\\.\\d+)?Z");
    static const std::regex links("https?://[^ <>\"]+");
    constexpr std::size_t kLong = 1000;
    if (value.IsString() && value.GetStringLength() < kLong)
      return std::regex_match(value.GetString(), dates)   ? Type::date
             : std::regex_match(value.GetString(), links) ? Type::uri
                                                          : Type::text;
    if (depth == kMaxNesting && (value.IsObject() || value.IsArray())) return Type::any;
    return value.IsString()   ? Type::text
           : value.IsInt64()  ? Type::integer
           : value.IsNumber() ? Type::number
           : value.IsBool()   ? Type::boolean
           : value.IsArray()  ? Type::list
           : value.IsObject() ? Type::object
                              : Type::any;
  }
};

class Author {
 public:
  explicit Author(std::vector<std::string>& leftOut) : leftOut_(leftOut) {}

  std::string plan(const std::map<std::string, Seen>& events, const Seen& all,
                   const std::string& nameSpace) {
    const Seen super = superOf(events, all);
    writer_.StartObject();
    string("namespace", nameSpace);
    writer_.Key("superProperties");
    writer_.StartObject();
    properties(super, {}, "the super properties");
    writer_.EndObject();
    writer_.Key("events");
    writer_.StartArray();
    Scope scope;
    for (const auto& [name, seen] : events) {
      if (isLibrarysEvent(name) || !isUsable(scope, name, "the events")) continue;
      writer_.StartObject();
      string("name", name);
      if (seen.count < kFew) doubtful("seen only " + times(seen.count));
      properties(seen, super.properties, name);
      writer_.EndObject();
    }
    writer_.EndArray();
    writer_.EndObject();
    return std::string(buffer_.GetString(), buffer_.GetSize()) + '\n';
  }

 private:
  // What several events have, and none lacks, is probably a super property.
  static Seen superOf(const std::map<std::string, Seen>& events, Seen all) {
    constexpr std::size_t kSeveral = 3;
    for (const auto& [name, event] : events)
      for (auto property = all.properties.begin(); property != all.properties.end();)
        property = events.size() >= kSeveral && event.properties.count(property->first) > 0
                       ? std::next(property)
                       : all.properties.erase(property);
    return all;
  }

  void properties(const Seen& object, const std::map<std::string, Seen>& except,
                  const std::string& of) {
    Scope scope;
    std::vector<std::string> required;
    writer_.Key("properties");
    writer_.StartObject();
    for (const auto& [name, seen] : object.properties) {
      if (isLibrarysProperty(name) || except.count(name) > 0 || !isUsable(scope, name, of))
        continue;
      if (seen.count == object.count) required.push_back(name);
      writer_.Key(name.c_str());
      writer_.StartObject();
      schema(seen, of + '.' + name);
      writer_.EndObject();
    }
    writer_.EndObject();
    if (required.empty()) return;
    writer_.Key("required");
    writer_.StartArray();
    for (const std::string& name : required) writer_.String(name.c_str());
    writer_.EndArray();
  }

  void schema(const Seen& seen, const std::string& path) {
    auto types = seen.types;
    if (types.count(Type::number) > 0) types.erase(Type::integer);
    if (types.count(Type::text) > 0)
      for (const Type special : {Type::date, Type::uri}) types.erase(special);
    if (types.size() != 1 || types.count(Type::any) > 0)
      return doubtful("seen with values of several types, or null");
    const Type type = types.begin()->first;
    constexpr const char* kNames[] = {"",       "string", "integer", "number", "boolean",
                                      "string", "string", "array",   "object"};
    string("type", kNames[static_cast<int>(type)]);
    if (type == Type::date || type == Type::uri)
      string("format", type == Type::date ? "date-time" : "uri");
    if (type == Type::object) properties(seen, {}, path);
    if (type == Type::list) {
      writer_.Key("items");
      writer_.StartObject();
      if (seen.element[0].count > 0) schema(seen.element[0], path);
      writer_.EndObject();
    }
    Scope scope;
    const bool isEnumeration =
        type == Type::text && seen.texts.size() <= kMostValues &&
        seen.count >= 3 * seen.texts.size() && seen.count >= kFew &&
        std::all_of(seen.texts.begin(), seen.texts.end(), [&](const auto& text) {
          return faultOfName(text.first).empty() &&
                 scope.take(upperCase(snakeName(text.first)), text.first).empty();
        });
    if (isEnumeration) {
      writer_.Key("enum");
      writer_.StartArray();
      for (const auto& [text, many] : seen.texts) writer_.String(text.c_str());
      writer_.EndArray();
      doubtful("all values in " + times(seen.count));
    }
  }

  bool isUsable(Scope& scope, const std::string& name, const std::string& of) {
    std::string fault = faultOfName(name);
    if (fault.empty() && !(scope.take(memberName(name), name).empty() &&
                           scope.take(' ' + upperCase(typeName(name)), name).empty()))
      fault = quoted(name) + " has the identifier of another name";
    if (!fault.empty()) leftOut_.push_back("left out of " + of + ": " + fault);
    return fault.empty();
  }

  void string(const char* key, const std::string& value) {
    writer_.Key(key);
    writer_.String(value.c_str());
  }

  void doubtful(const std::string& why) { string("$comment", "doubtful: " + why); }

  static std::string times(std::size_t count) {
    return count == 1 ? "once" : std::to_string(count) + " times";
  }

  rapidjson::StringBuffer buffer_;
  Writer writer_{buffer_};
  std::vector<std::string>& leftOut_;
};

}  // namespace

std::string inferred(const std::string& lines, const std::string& nameSpace,
                     std::vector<std::string>& leftOut) {
  std::map<std::string, Seen> events;
  Seen all;
  std::istringstream in(lines);
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(line.data(), line.size());
    const Value& request = document;
    if (document.HasParseError() || !request.IsObject() || !request.HasMember("body"))
      throw std::runtime_error("line " + std::to_string(number) + " is none of a collector");
    if (!request["body"].IsArray()) continue;  // a heartbeat
    for (const Value& record : request["body"].GetArray())
      if (record.IsObject() && record.HasMember("event") && record["event"].IsString() &&
          record.HasMember("properties"))
        for (Seen* const seen : {&all, &events[record["event"].GetString()]})
          seen->add(record["properties"]);
  }
  return Author(leftOut).plan(events, all, nameSpace);
}

}  // namespace veltrano::planning

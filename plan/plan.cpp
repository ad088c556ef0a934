// Reads a plan, and refuses what would not be held to everywhere.
#include "plan/plan.h"

#include "encoding/rapidjson_settings.h"
// The settings come first.
#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <map>
#include <utility>

#include "plan/names.h"

namespace veltrano::planning {
namespace {

namespace rapidjson = internal::rapidjson;
using rapidjson::Value;

constexpr int kMaxNesting = 12;
constexpr std::size_t kMaxFileName = 200;

// By `Type`.
constexpr std::string_view kEnglish[] = {"anything", "text",          "integer",
                                         "number",   "true or false", "date and time",
                                         "URI",      "list",          "object"};

using Types = unsigned;  // a set of bits
template <class... Each>
constexpr Types setOf(Each... type) {
  return (0U | ... | (1U << static_cast<unsigned>(type)));
}
constexpr Types kAll = ~0U;
constexpr Types kNumbers = setOf(Type::integer, Type::number);

// The vocabulary: keywords, by the types that they say something about.
constexpr struct {
  Types types;
  std::string_view keywords[4];
} kVocabulary[] = {{kAll, {"$comment", "description", "title", "type"}},
                   {setOf(Type::date, Type::uri), {"format"}},
                   {setOf(Type::text), {"const", "enum"}},
                   {setOf(Type::text, Type::uri), {"maxLength", "minLength", "pattern"}},
                   {kNumbers, {"exclusiveMaximum", "exclusiveMinimum", "maximum", "minimum"}},
                   {setOf(Type::list), {"items", "maxItems", "minItems"}},
                   {setOf(Type::object), {"additionalProperties", "properties", "required"}}};

const Value* valueOf(const Value& object, const char* key) {
  const auto member = object.FindMember(key);
  return member != object.MemberEnd() ? &member->value : nullptr;
}

class Reader {
 public:
  Reader(const std::string& json, const std::string& file)
      : json_(json), file_(file), buffer_(json + std::string(3, '\0')) {
    // A character that is cut off at the end is validated up to three bytes beyond it.
    // In place, so that a text of the plan tells where it stands.
    document_.ParseInsitu<rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag>(
        buffer_.data());
    if (document_.HasParseError())
      faults_.emplace(document_.GetErrorOffset(),
                      rapidjson::GetParseError_En(document_.GetParseError()));
    else if (!document_.IsObject())
      refuse(document_, "a plan must be an object");
    throwFaults();
  }

  Plan plan() {
    Plan plan;
    const Value none(rapidjson::kObjectType);
    const Value *super = &none, *events = nullptr;
    const Value *superPlace = &none, *eventsPlace = &none, *spacePlace = &none;
    refuseTwice(document_);
    for (const auto& [key, value] : std::as_const(document_).GetObject())
      if (view(key) == "namespace")
        plan.nameSpace = text(key, value), spacePlace = &key;
      else if (view(key) == "events")
        events = &value, eventsPlace = &key;
      else if (view(key) == "superProperties")
        super = &value, superPlace = &key;
      else if (view(key) == "description")
        plan.description = text(key, value);
      else
        refuse(key, "unknown key " + inQuotes(view(key)));
    if (plan.nameSpace.empty() || memberName(plan.nameSpace) != plan.nameSpace ||
        isGlobal(plan.nameSpace))
      refuse(*spacePlace, "a plan needs a \"namespace\", an identifier that no common header uses");
    const Names names{"the super properties", "super_properties", "SuperProperties", true, 0};
    for (const char* identifier : {"set_super_properties", "SuperProperties"})
      take(identifier, *superPlace, names.path);
    plan.superProperties = schema(*superPlace, *super, names);
    for (const Property& property : plan.superProperties.properties) isSuper_.insert(property.name);
    if (events == nullptr || !events->IsArray())
      refuse(*eventsPlace, "a plan needs \"events\", an array");
    else
      for (const Value& event : events->GetArray())
        plan.events.push_back(this->event(*eventsPlace, event, plan.events.size() + 1));
    throwFaults();
    return plan;
  }

 private:
  // What a value is called: in the plan, and in generated headers, in C by the path to it.
  struct Names {
    std::string path;
    std::string c;
    std::string cpp;
    bool areOfEvent;
    int depth;
  };

  // The place is a text of the plan, or anything else for the plan as a whole.
  void refuse(const Value& place, const std::string& what) {
    faults_.emplace(place.IsString() ? place.GetString() - buffer_.data() - 1 : 0, what);
  }

  void throwFaults() const {
    std::string lines;
    for (const auto& [place, what] : faults_) {
      const std::string before = json_.substr(0, static_cast<std::size_t>(place));
      const auto column = codePoints(before.substr(before.rfind('\n') + 1)).size();
      lines += (lines.empty() ? "" : "\n") + file_ + ':' +
               std::to_string(1 + std::count(before.begin(), before.end(), '\n')) + ':' +
               std::to_string(1 + column) + ": " + what;
    }
    if (!lines.empty()) throw Faults(lines, taken_);
  }

  void refuseTwice(const Value& object) {
    std::set<std::string_view> keys;
    for (const auto& [key, value] : object.GetObject())
      if (!keys.insert(view(key)).second) refuse(key, inQuotes(view(key)) + " is defined twice");
  }

  std::string text(const Value& key, const Value& value) {
    if (value.IsString()) return std::string(view(value));
    return refuse(key, inQuotes(view(key)) + " must be a string"), std::string();
  }

  std::string name(const Value& value) {
    if (const std::string fault = faultOfName(view(value)); !fault.empty()) refuse(value, fault);
    return std::string(view(value));
  }

  // Gives an identifier to what is at a path, or refuses it.
  void take(const std::string& identifier, const Value& place, const std::string& path) {
    const auto [taken, isNew] = identifiers_.emplace(identifier, path);
    if (isNew) return;
    taken_.insert(path);
    refuse(place, taken->second == path ? inQuotes(path) + " is defined twice"
                                        : inQuotes(path) + " and " + inQuotes(taken->second) +
                                              " both map to the identifier " + identifier);
  }

  Event event(const Value& place, const Value& json, std::size_t number) {
    Event event;
    const Value* const value = json.IsObject() ? valueOf(json, "name") : nullptr;
    if (value == nullptr || !value->IsString())
      return refuse(json.IsObject() && !json.ObjectEmpty() ? json.MemberBegin()->name : place,
                    "event " + std::to_string(number) + " needs a \"name\""),
             event;
    event.name = name(*value);
    if (isLibrarysEvent(event.name)) refuse(*value, "the library already sends this event");
    const Names names{event.name, snakeName(event.name), typeName(event.name), true, 0};
    const std::size_t faults = faults_.size();
    if (names.c.size() > kMaxFileName) refuse(*value, "the name is too long for a header");
    take(names.cpp, *value, event.name);
    take("track_" + names.c, *value, event.name);
    if (faults_.size() == faults) event.schema = schema(*value, json, names);
    return event;
  }

  Schema schema(const Value& place, const Value& json, const Names& names) {
    Schema schema;
    if (!json.IsObject()) return refuse(place, "a schema must be an object"), schema;
    if (names.depth > kMaxNesting) return refuse(place, "nested too deeply"), schema;
    const std::size_t faults = faults_.size();
    refuseTwice(json);
    readType(place, json, schema, names.areOfEvent);
    if (faults_.size() > faults) return schema;
    for (const char* start : {"", "make_"})
      if (schema.type == Type::object) take(start + names.c, place, names.path);
    for (const auto& [key, value] : json.GetObject())
      if (view(key) != "name" || names.depth > 0 || names.cpp == "SuperProperties")
        keyword(schema, key, value, names);
    if (!schema.values.empty() && !(schema.least.word + schema.most.word + schema.pattern).empty())
      refuse(place, "no pattern or length can be combined with \"enum\" or \"const\"");
    if (!names.areOfEvent && schema.properties.empty() && !valueOf(json, "additionalProperties"))
      schema.isOpen = true;
    if (schema.type == Type::list && schema.element.empty()) schema.element.emplace_back();
    if (const auto required = json.FindMember("required"); required != json.MemberEnd())
      readRequired(required->name, required->value, schema);
    return schema;
  }

  void readType(const Value& place, const Value& json, Schema& schema, bool isOfEvent) {
    const Value* const type = valueOf(json, "type");
    const Value* const format = valueOf(json, "format");
    for (const Type each :
         {Type::text, Type::integer, Type::number, Type::boolean, Type::list, Type::object})
      if (type != nullptr && type->IsString() && view(*type) == jsonTypeOf(each))
        schema.type = each;
    if (type != nullptr && schema.type == Type::any)
      refuse(type->IsString() ? *type : place,
             "\"type\" must be string, integer, number, boolean, array or object");
    if (type == nullptr && (valueOf(json, "enum") != nullptr || valueOf(json, "const") != nullptr))
      schema.type = Type::text;
    if (isOfEvent && type != nullptr && schema.type != Type::object)
      refuse(place, "the properties of an event are an \"object\"");
    if (isOfEvent) schema.type = Type::object;
    if (format == nullptr || schema.type != Type::text) return;
    schema.type = *format == "uri" ? Type::uri : Type::date;
    if (schema.type == Type::date && *format != "date-time")
      refuse(format->IsString() ? *format : place, "unknown format; use \"date-time\" or \"uri\"");
  }

  void keyword(Schema& schema, const Value& key, const Value& value, const Names& names) {
    const std::string word(view(key));
    Types types = 0;
    for (const auto& [each, keywords] : kVocabulary)
      if (std::find(std::begin(keywords), std::end(keywords), word) != std::end(keywords))
        types = each;
    if (types == 0 || word.empty())
      return refuse(key, inQuotes(word) + " is outside the vocabulary of plans");
    if ((types & setOf(schema.type)) == 0)
      return refuse(
          key, inQuotes(word) + (schema.type == Type::any ? " needs a \"type\""
                                                          : " does not apply to " + schema.text()));
    if (word == "description")
      schema.description = text(key, value);
    else if (word == "title" || word == "$comment")
      text(key, value);
    else if (word == "enum" || word == "const")
      readValues(schema, key, value, word == "const", names);
    else if (word == "pattern")
      readPattern(schema, key, value);
    else if (word == "items")
      schema.element.push_back(
          this->schema(key, value, {names.path, names.c, names.cpp, false, names.depth + 1}));
    else if (word == "properties")
      readProperties(schema, key, value, names);
    else if (word == "additionalProperties")
      value.IsBool() ? void(schema.isOpen = value.IsTrue()) : refuse(key, "must be true or false");
    else if (word != "type" && word != "format" && word != "required")
      readBound(schema, key, value, types == kNumbers);
  }

  void readBound(Schema& schema, const Value& key, const Value& value, bool isOfNumber) {
    if (isOfNumber ? !value.IsNumber() : !value.IsUint())
      return refuse(key, isOfNumber ? "must be a number" : "must be a non-negative integer");
    if (!value.IsLosslessDouble()) return refuse(key, "beyond 2^53 a bound is not exact");
    const std::string word(view(key));
    const bool isLeast = word.find("ax") == word.npos;
    Bound& bound = isLeast ? schema.least : schema.most;
    if (!bound.word.empty()) return refuse(key, "use " + word + " or " + bound.word + ", not both");
    double end = value.GetDouble();
    if (word[0] == 'e') end = std::nextafter(end, -bound.end);
    if (schema.type == Type::integer) end = isLeast ? std::ceil(end) : std::floor(end);
    bound = {word, value.GetDouble(), end};
    if (schema.least.end > schema.most.end) refuse(key, "no value satisfies both bounds");
  }

  void readValues(Schema& schema, const Value& key, const Value& json, bool isConstant,
                  const Names& names) {
    if (!schema.values.empty()) return refuse(key, "use \"const\" or \"enum\", not both");
    for (const char* start : {"", "text_of_"}) take(start + names.c, key, names.path);
    const auto add = [&](const Value& value) {
      if (!value.IsString()) return refuse(key, "enum values must be strings");
      const std::string& text = schema.values.emplace_back(name(value));
      const std::string path = names.path + " = " + text;
      take(names.c + "::" + memberName(text), value, path);
      take(upperCase(names.c + '_' + snakeName(text)), value, path);
    };
    if (isConstant) return add(json);
    if (!json.IsArray() || json.Empty()) return refuse(key, "must be an array of strings");
    for (const Value& value : json.GetArray()) add(value);
  }

  void readPattern(Schema& schema, const Value& key, const Value& value) {
    schema.pattern = text(key, value);
    if (const auto fault = faultOfPattern(schema.pattern); !fault.empty()) refuse(key, fault);
  }

  void readProperties(Schema& schema, const Value& place, const Value& json, const Names& names) {
    if (!json.IsObject()) return refuse(place, "must be an object of schemas");
    const std::string scope = names.c + '.';
    take(scope + names.cpp, place, names.path);
    for (const auto& [key, value] : json.GetObject()) {
      const std::string name = this->name(key), member = memberName(name);
      const bool isReserved = isLibrarysProperty(name);
      if (names.areOfEvent && (isReserved || isSuper_.count(name) > 0))
        refuse(key, inQuotes(name) + (isReserved ? " is reserved for the library"
                                                 : " is also a super property"));
      const std::string type = nestedTypeName(name, names.cpp);
      const std::string path = names.path + '.' + name, c = names.c + '_' + snakeName(name);
      schema.properties.push_back(
          {name, this->schema(key, value, {path, c, type, false, names.depth + 1}), false});
      take(scope + member, key, path);
      const Schema& whole = schema.properties.back().schema;
      const Schema& held = whole.innermost();
      if (!held.values.empty() || !held.properties.empty()) take(scope + type, key, path);
      // Members of C that go with it.
      if ((setOf(whole.type) & (kNumbers | setOf(Type::boolean, Type::date))) != 0)
        take(std::string(scope).append("has_").append(member), key, path);
      if (whole.type == Type::list) take(scope + member + "_count", key, path);
    }
  }

  void readRequired(const Value& key, const Value& json, Schema& schema) {
    if (!json.IsArray()) return refuse(key, "must be an array of property names");
    for (const Value& value : json.GetArray()) {
      if (!value.IsString()) return refuse(key, "must be an array of property names");
      const std::string name(view(value));
      const auto property = std::find_if(schema.properties.begin(), schema.properties.end(),
                                         [&](const Property& it) { return it.name == name; });
      if (property == schema.properties.end())
        refuse(value, inQuotes(name) + " is not among the properties");
      else if (std::exchange(property->isRequired, true))
        refuse(value, inQuotes(name) + " is listed twice");
    }
  }

  const std::string& json_;
  const std::string file_;
  std::string buffer_;
  rapidjson::Document document_;
  std::map<std::ptrdiff_t, std::string> faults_;  // the first at each place
  std::set<std::string> isSuper_, taken_;
  std::map<std::string, std::string> identifiers_;  // and whose they are
};

}  // namespace

Plan Plan::parse(const std::string& json, const std::string& file) {
  return Reader(json, file).plan();
}

Plan Plan::read(const std::string& file) {
  return parse(contentOf(file), file);
}

std::string contentOf(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  in.peek();  // fails for a folder, which can be opened
  if (in.fail()) throw Faults(file + ": the file cannot be read");
  return {std::istreambuf_iterator<char>(in), {}};
}

const char* jsonTypeOf(Type type) {
  constexpr const char* kJSON[] = {"",       "string", "integer", "number", "boolean",
                                   "string", "string", "array",   "object"};
  return kJSON[static_cast<int>(type)];
}

std::string Schema::text() const {
  std::string text(kEnglish[static_cast<int>(type)]);
  if (type == Type::list && element[0].type != Type::any) text += " of " + element[0].text();
  if (!values.empty()) text.clear();
  for (const std::string& value : values)
    text += (text.empty() ? "" : &value == &values.back() ? " or " : ", ") + inQuotes(value);
  std::string limits = pattern.empty() ? "" : "pattern " + inQuotes(pattern);
  for (const auto& [word, value, end] : {least, most})
    if (!word.empty()) limits += (limits.empty() ? "" : ", ") + word + ' ' + numberText(value);
  return limits.empty() ? text : text + " (" + limits + ')';
}

std::string numberText(double number) {
  std::string text = internal::json(number);
  if (text.ends_with(".0")) text.resize(text.size() - 2);
  return text;
}

}  // namespace veltrano::planning

// Reads a plan, and refuses what would not be held to everywhere.
#include "plan/plan.h"

#include "encoding/rapidjson_settings.h"
// The settings come first.
#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <regex>
#include <set>
#include <unordered_map>
#include <utility>

#include "plan/names.h"

namespace veltrano::planning {
namespace {

namespace rapidjson = internal::rapidjson;
using rapidjson::Value;

constexpr int kMaxNesting = 32;

struct TypeWord {
  std::string_view json;
  std::string_view english;
};
constexpr TypeWord kTypeWords[] = {
    {"", "anything"},
    {"string", "text"},
    {"integer", "integer"},
    {"number", "number"},
    {"boolean", "true or false"},
    {"string", "date and time"},
    {"string", "URI"},
    {"array", "list"},
    {"object", "object"},
};
const TypeWord& wordOf(Type type) {
  return kTypeWords[static_cast<int>(type)];
}

// What RapidJSON's validator does not know.
constexpr std::string_view kDatePattern =
    R"(^[0-9]{4}-[0-9]{2}-[0-9]{2}[Tt][0-9]{2}:[0-9]{2}:[0-9]{2}(\.[0-9]+)?([Zz]|[+-][0-9]{2}:[0-9]{2})$)";
constexpr std::string_view kUriPattern = "^[A-Za-z][A-Za-z0-9+.-]*:[^ <>\"]*$";

using Types = unsigned;  // a set of bits
constexpr Types bit(Type type) {
  return 1U << static_cast<unsigned>(type);
}
constexpr Types kTexts = bit(Type::text) | bit(Type::uri);
constexpr Types kNumbers = bit(Type::integer) | bit(Type::number);

struct Limits {
  const char* least;
  const char* most;
  Types types;  // that they say something about
};
constexpr Limits kLimits[] = {
    {"minimum", "maximum", kNumbers},
    {"exclusiveMinimum", "exclusiveMaximum", kNumbers},
    {"minLength", "maxLength", kTexts},
    {"minItems", "maxItems", bit(Type::list)},
};

std::string_view view(const Value& text) {
  return {text.GetString(), text.GetStringLength()};
}

const Value* find(const Value& object, const char* key) {
  const auto member = object.FindMember(key);
  return member != object.MemberEnd() ? &member->value : nullptr;
}

class Reader {
 public:
  Reader(const std::string& json, const std::string& file) : json_(json), file_(file) {
    // RapidJSON 1.1 crashes at a zero with some 350 decimals.
    const auto zeros = json.find(std::string(100, '0'));
    if (zeros != json.npos) refuseAt(zeros, "there are 100 zeros in a row");
    if (zeros == json.npos)
      document_.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag |
                      rapidjson::kParseValidateEncodingFlag>(json.data(), json.size());
    if (document_.HasParseError())
      refuseAt(document_.GetErrorOffset(), rapidjson::GetParseError_En(document_.GetParseError()));
    throwFaults();
    place(document_, 0);
  }

  Plan plan() {
    Plan plan;
    const Value empty(rapidjson::kObjectType);
    const Value* super = &empty;
    const Value* events = &empty;
    if (!document_.IsObject()) refuse(document_, "a plan has to be an object");
    throwFaults();
    for (const auto& [key, value] : std::as_const(document_).GetObject()) {
      if (view(key) == "namespace") {
        plan.nameSpace = text(value);
        if (plan.nameSpace.empty() || memberName(plan.nameSpace) != plan.nameSpace)
          refuse(value, "\"namespace\" has to be an identifier");
      } else if (view(key) == "events") {
        events = &value;
      } else if (view(key) == "superProperties") {
        super = &value;
      } else if (view(key) != "description") {
        refuse(key, "a plan has no " + quoted(view(key)));
      }
    }
    if (plan.nameSpace.empty()) refuse(document_, "a plan needs a \"namespace\"");
    places_[&empty] = 0;
    plan.superProperties = schema(*super, "super_properties", "SuperProperties", true);
    for (const Property& property : plan.superProperties.properties) super_.insert(property.name);
    eventTypes_.take("SuperProperties", "super properties");
    if (!events->IsArray())
      refuse(*events, "a plan needs \"events\", an array");
    else
      for (const Value& event : events->GetArray()) plan.events.push_back(this->event(event));
    throwFaults();
    return plan;
  }

 private:
  // Notes where values stand, following the text, and refuses keys that stand twice.
  void place(const Value& value, int depth) {
    const auto skip = [&] { at_ = json_.find_first_not_of(" \t\r\n,:", at_); };
    skip();
    places_[&value] = at_;
    if (depth > kMaxNesting) {
      refuse(value, "this nests too deep");
      throwFaults();
    }
    if (value.IsObject() || value.IsArray()) {
      ++at_;
      std::set<std::string_view> keys;
      if (value.IsArray())
        for (const Value& element : value.GetArray()) place(element, depth + 1);
      else
        for (const auto& [key, held] : value.GetObject()) {
          place(key, depth + 1);
          if (!keys.insert(view(key)).second) refuse(key, quoted(view(key)) + " stands here twice");
          place(held, depth + 1);
        }
      skip();
      ++at_;
    } else if (value.IsString()) {
      while (json_[++at_] != '"') at_ += json_[at_] == '\\';
      ++at_;
    } else {
      at_ = std::min(json_.find_first_of(" \t\r\n,]}", at_), json_.size());
    }
  }

  void refuseAt(std::size_t place, const std::string& what) { faults_.emplace(place, what); }

  void refuse(const Value& value, const std::string& what) { refuseAt(places_.at(&value), what); }

  void throwFaults() const {
    if (faults_.empty()) return;
    std::string lines;
    for (const auto& [place, what] : faults_) {
      const auto start = json_.begin() + static_cast<std::ptrdiff_t>(
                                             place == 0 ? 0 : json_.rfind('\n', place - 1) + 1);
      const auto here = json_.begin() + static_cast<std::ptrdiff_t>(place);
      const auto column =
          1 + std::count_if(start, here, [](char c) { return (c & 0xC0) != 0x80; });  // characters
      lines += (lines.empty() ? "" : "\n") + file_ + ':' +
               std::to_string(1 + std::count(json_.begin(), here, '\n')) + ':' +
               std::to_string(column) + ": " + what;
    }
    throw Faults(lines);
  }

  std::string text(const Value& value) {
    if (value.IsString()) return std::string(view(value));
    refuse(value, "this has to be text");
    return {};
  }

  std::string name(const Value& value) {
    std::string name = text(value);
    if (const std::string fault = faultOfName(name); !fault.empty()) refuse(value, fault);
    return name;
  }

  void take(Scope& scope, const std::string& identifier, const Value& place,
            std::string_view name) {
    const std::string_view other = scope.take(identifier, name);
    if (other == name && !name.empty())
      refuse(place, quoted(name) + " stands here twice");
    else if (!other.empty())
      refuse(place,
             quoted(name) + " and " + quoted(other) + " make the same identifier, " + identifier);
  }

  Event event(const Value& json) {
    const Value* const value = json.IsObject() ? find(json, "name") : nullptr;
    if (value == nullptr) {
      refuse(json, "an event has to be an object with a \"name\"");
      return {};
    }
    Event event;
    event.name = name(*value);
    if (isLibrarysEvent(event.name)) refuse(*value, "the library has an event of this name itself");
    const std::string type = typeName(event.name);
    const std::size_t faults = faults_.size();
    take(eventTypes_, type, *value, event.name);
    if (faults_.size() == faults) event.schema = schema(json, snakeName(event.name), type, true);
    return event;
  }

  // The names are what generated headers call it: in C by the path to it.
  Schema schema(const Value& json, const std::string& cName, const std::string& type,
                bool isOfEvent) {
    Schema schema;
    if (isOfEvent) schema.type = Type::object;
    if (!json.IsObject()) {
      refuse(json, "a schema has to be an object");
      return schema;
    }
    if (!readType(json, schema, isOfEvent)) return schema;
    if (schema.type == Type::object)
      for (const char* start : {"", "make_"}) takeGlobally(start + cName, json);
    if (isOfEvent) takeGlobally("track_" + cName, json);
    for (const auto& [key, value] : json.GetObject())
      if (!(isOfEvent && view(key) == "name")) keyword(schema, key, value, cName, type, isOfEvent);
    checkBounds(json, schema);
    if (!isOfEvent && schema.properties.empty()) schema.isOpen = true;
    if (schema.type == Type::list && schema.element.empty()) schema.element.emplace_back();
    if (const Value* const required = find(json, "required");
        required && schema.type == Type::object)
      readRequired(*required, schema);
    schema.draft4 = draft4Of(schema);
    return schema;
  }

  void takeGlobally(const std::string& identifier, const Value& place) {
    if (!global_.insert(identifier).second)
      refuse(place, "another event or property makes the same identifier of C, " + identifier);
  }

  bool readType(const Value& json, Schema& schema, bool isOfEvent) {
    const Value* const format = find(json, "format");
    if (const Value* const value = find(json, "type")) {
      const std::string type = value->IsString() ? text(*value) : std::string();
      const auto* const word =
          std::find_if(std::begin(kTypeWords), std::end(kTypeWords),
                       [&](const TypeWord& it) { return !type.empty() && it.json == type; });
      if (word == std::end(kTypeWords) || (isOfEvent && type != "object")) {
        refuse(*value,
               isOfEvent
                   ? "the properties of an event are an \"object\""
                   : "\"type\" has to be one of \"string\", \"integer\", \"number\", "
                     "\"boolean\", \"array\" and \"object\"; without it, anything is allowed");
        return false;
      }
      schema.type = static_cast<Type>(word - kTypeWords);
    } else if (find(json, "enum") != nullptr || find(json, "const") != nullptr) {
      schema.type = Type::text;
    }
    if (format == nullptr) return true;
    const std::string name = text(*format);
    if (name != "date-time" && name != "uri")
      refuse(*format, "an unknown format; plans know \"date-time\" and \"uri\"");
    else if (schema.type != Type::text)
      refuse(*format, "a format says nothing about " + std::string(wordOf(schema.type).english));
    else
      schema.type = name == "uri" ? Type::uri : Type::date;
    return true;
  }

  void keyword(Schema& schema, const Value& key, const Value& value, const std::string& cName,
               const std::string& type, bool isOfEvent) {
    const std::string word(view(key));
    const auto says = [&](Types types) {
      if ((types & bit(schema.type)) != 0) return true;
      refuse(key, quoted(word) + " says nothing about " + std::string(wordOf(schema.type).english));
      return false;
    };
    const auto* const limits =
        std::find_if(std::begin(kLimits), std::end(kLimits),
                     [&](const Limits& it) { return word == it.least || word == it.most; });
    if (word == "type" || word == "format") return;
    if (word == "description") {
      schema.description = text(value);
    } else if (word == "title" || word == "$comment") {
      text(value);
    } else if (limits != std::end(kLimits)) {
      if (says(limits->types)) readBound(schema, word, value, limits->types == kNumbers);
    } else if (word == "enum" || word == "const") {
      if (says(bit(Type::text))) readValues(schema, value, word == "const", cName);
    } else if (word == "pattern") {
      if (says(kTexts)) readPattern(schema, value);
    } else if (word == "items") {
      if (says(bit(Type::list))) schema.element.push_back(this->schema(value, cName, type, false));
    } else if (word == "properties") {
      if (says(bit(Type::object))) readProperties(schema, value, cName, type, isOfEvent);
    } else if (word == "additionalProperties") {
      if (says(bit(Type::object)) && !value.IsBool()) refuse(value, "this has to be true or false");
      schema.isOpen = value.IsTrue();
    } else if (word == "required") {
      says(bit(Type::object));
    } else {
      refuse(key, quoted(word) + " is outside the vocabulary of plans");
    }
  }

  void readBound(Schema& schema, const std::string& word, const Value& value, bool isOfNumber) {
    if (isOfNumber ? value.IsNumber() : value.IsUint())
      schema.bounds[word] = value.GetDouble();
    else
      refuse(value, isOfNumber ? "this has to be a number" : "this has to be a count");
  }

  // RapidJSON's validator takes one bound of each side.
  void checkBounds(const Value& json, const Schema& schema) {
    const auto value = [&](const char* word, double otherwise) {
      const auto bound = schema.bounds.find(word);
      return bound != schema.bounds.end() ? bound->second : otherwise;
    };
    constexpr double kNone = std::numeric_limits<double>::infinity();
    for (const Limits& it : kLimits)
      if (value(it.least, -kNone) > value(it.most, kNone))
        refuse(json, std::string(it.least) + " and " + it.most + " leave no value");
    for (const char* side : {"Minimum", "Maximum"})
      if (schema.bounds.count(side[1] == 'i' ? "minimum" : "maximum") != 0 &&
          schema.bounds.count(std::string("exclusive") + side) != 0)
        refuse(json, std::string("say \"exclusive") + side + "\" alone");
  }

  void readValues(Schema& schema, const Value& json, bool isConstant, const std::string& cName) {
    Scope scope;
    for (const char* start : {"", "text_of_"}) takeGlobally(start + cName, json);
    const auto add = [&](const Value& value) {
      if (!value.IsString()) return refuse(value, "only texts can be enumerated");
      schema.values.push_back(name(value));
      take(scope, memberName(schema.values.back()), value, schema.values.back());
      takeGlobally(upperCase(cName + '_' + snakeName(schema.values.back())), value);
    };
    if (!schema.values.empty()) return refuse(json, "say \"const\" or \"enum\"");
    if (isConstant) return add(json);
    if (!json.IsArray() || json.Empty()) return refuse(json, "this has to be an array of texts");
    for (const Value& value : json.GetArray()) add(value);
  }

  void readPattern(Schema& schema, const Value& value) {
    constexpr std::size_t kMost = 256;  // bounds the recursion of std::regex
    schema.pattern = text(value);
    try {
      if (schema.pattern.size() > kMost)
        refuse(value, "the pattern is too long");
      else
        std::regex(schema.pattern, std::regex::ECMAScript);
    } catch (const std::regex_error& error) {
      refuse(value, std::string("the pattern cannot be checked: ") + error.what());
    }
  }

  void readProperties(Schema& schema, const Value& json, const std::string& cName,
                      const std::string& type, bool isOfEvent) {
    if (!json.IsObject()) return refuse(json, "this has to be an object of schemas");
    Scope scope;
    scope.take(type, "the type of all");
    for (const auto& [key, value] : json.GetObject()) {
      Property property;
      property.name = name(key);
      if (isOfEvent && isLibrarysProperty(property.name))
        refuse(key, quoted(property.name) + " is a property of the library's own");
      if (isOfEvent && super_.count(property.name) > 0)
        refuse(key, quoted(property.name) + " is a super property, too");
      const std::string member = memberName(property.name);
      property.schema = this->schema(value, cName + '_' + snakeName(property.name),
                                     nestedTypeName(property.name), false);
      take(scope, member, key, property.name);
      const Schema& bottom = innermost(property.schema);
      if (!bottom.values.empty() || !bottom.properties.empty())
        take(scope, nestedTypeName(property.name), key, property.name + " as a type");
      // Members of C that go with it.
      take(scope, "has_" + member, key, "the presence of " + property.name);
      take(scope, member + "_count", key, "the count of " + property.name);
      schema.properties.push_back(std::move(property));
    }
  }

  static const Schema& innermost(const Schema& schema) {
    return schema.element.empty() ? schema : innermost(schema.element[0]);
  }

  void readRequired(const Value& json, Schema& schema) {
    if (!json.IsArray()) return refuse(json, "this has to be an array of names");
    for (const Value& value : json.GetArray()) {
      const std::string name = text(value);
      const auto property = std::find_if(schema.properties.begin(), schema.properties.end(),
                                         [&](const Property& it) { return it.name == name; });
      if (property == schema.properties.end())
        refuse(value, quoted(name) + " is not among the properties");
      else if (std::exchange(property->isRequired, true))
        refuse(value, quoted(name) + " stands here twice");
    }
  }

  static std::string draft4Of(const Schema& schema) {
    std::string json = "{";
    const auto add = [&](std::string_view key, const std::string& value) {
      json.append(json.size() > 1 ? "," : "").append(quoted(key)).append(":").append(value);
    };
    if (schema.type != Type::any) add("type", quoted(wordOf(schema.type).json));
    for (const auto& [word, bound] : schema.bounds) {
      const bool isExclusive = word[0] == 'e';
      if (isExclusive) add(word, "true");
      add(word == "exclusiveMinimum"   ? "minimum"
          : word == "exclusiveMaximum" ? "maximum"
                                       : word,
          numberText(bound));
    }
    std::string values;
    for (const std::string& value : schema.values)
      values += (values.empty() ? "[" : ",") + quoted(value);
    if (!values.empty()) add("enum", values + ']');
    if (!schema.pattern.empty()) add("pattern", quoted(schema.pattern));
    const std::string_view format = schema.type == Type::date  ? kDatePattern
                                    : schema.type == Type::uri ? kUriPattern
                                                               : "";
    if (!format.empty()) add("allOf", "[{\"pattern\":" + quoted(format) + "}]");
    return json + '}';
  }

  const std::string& json_;
  const std::string file_;
  rapidjson::Document document_;
  std::size_t at_ = 0;
  std::unordered_map<const Value*, std::size_t> places_;
  std::map<std::size_t, std::string> faults_;  // the first at each place
  std::set<std::string> super_;
  Scope eventTypes_;
  // Identifiers of C, without the prefix of the plan.
  std::set<std::string> global_{"set_super_properties"};
};

}  // namespace

Plan Plan::parse(const std::string& json, const std::string& file) {
  return Reader(json, file).plan();
}

Plan Plan::read(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  std::string json(std::istreambuf_iterator<char>(in), {});
  if (!in) throw Faults(file + ": the file cannot be read");
  return parse(json, file);
}

std::string faultOfName(std::string_view name) {
  const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
  if (std::any_of(name.begin(), name.end(), isControl))
    return quoted(name) + " has control characters";
  // Letters with marks of their own could be spelt in two ways, which the library takes for one.
  for (std::size_t i = 0; i + 1 < name.size(); ++i)
    if (name[i] == '\xCC' || (name[i] == '\xCD' && name[i + 1] < '\xB0'))
      return quoted(name) + " has combining marks; write composed letters";
  if (memberName(name).empty())
    return quoted(name) + " has no letter or digit to make an identifier of";
  return {};
}

std::string Schema::text() const {
  std::string text(wordOf(type).english);
  if (type == Type::list && element[0].type != Type::any) text += " of " + element[0].text();
  if (!values.empty()) text.clear();
  for (const std::string& value : values)
    text += (text.empty() ? "" : &value == &values.back() ? " or " : ", ") + quoted(value);
  std::string limits = pattern.empty() ? "" : "pattern " + quoted(pattern);
  for (const auto& [word, bound] : bounds)
    limits += (limits.empty() ? "" : ", ") + word + ' ' + numberText(bound);
  return limits.empty() ? text : text + " (" + limits + ')';
}

std::string quoted(std::string_view text) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  writer.String(text.data(), text.size());
  return {buffer.GetString(), buffer.GetSize()};
}

std::string numberText(double number) {
  constexpr double kExact = 1e15;
  if (std::abs(number) < kExact && number == std::floor(number))
    return std::to_string(static_cast<long long>(number));
  char text[32];
  return {text, std::to_chars(std::begin(text), std::end(text), number).ptr};
}

}  // namespace veltrano::planning

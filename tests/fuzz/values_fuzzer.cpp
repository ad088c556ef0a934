// Passes a tree of values to the library in every possible way, as super properties and as an
// event's own, and compares the upload, parsed by a JSON library that the product does not use,
// with the result of a naive converter, made beside the values as their tree is read.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <functional>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "encoding/base64.h"
#include "platform/simulated/simulated_platform.h"
#include "tracker/library.h"
#include "veltrano/veltrano.h"
#include "veltrano/veltrano_c.h"

using namespace veltrano;
using namespace veltrano::internal;
using Json = nlohmann::json;

namespace {

void require(bool condition, const char* what, const Json& expected = {}, const Json& actual = {}) {
  if (condition) return;
  constexpr auto kReplace = Json::error_handler_t::replace;
  std::fprintf(stderr, "%s\nexpected %s\nactual   %s\n", what,
               expected.dump(-1, ' ', true, kReplace).c_str(),
               actual.dump(-1, ' ', true, kReplace).c_str());
  std::abort();
}

// ---- What is sent, by a naive converter ----

// Left out of events, from whichever layer and at any depth. Sorted.
const std::vector<std::string> kWithheld = {"$wifi", "b"};

// Marks a value that makes its batch undeliverable.
const Json kUnsendable = Json::binary({});

std::string wellFormed(const std::string& text) {
  return Json::parse(Json(text).dump(-1, ' ', false, Json::error_handler_t::replace));
}

template <class Number>
Json numberAsSent(int code, Number number) {
  if (code == 7) return number != 0;
  if (!std::set{1, 2, 3, 4, 9, 10, 11, 15}.contains(code)) return static_cast<double>(number);
  if constexpr (std::is_integral_v<Number>) return number;
  if (std::isnan(number)) return 0;
  if (number >= 0x1p63) return INT64_MAX;
  return number <= -0x1p63 ? INT64_MIN : static_cast<std::int64_t>(number);
}

std::string iso8601(std::int64_t microseconds) {
  const auto milliseconds = static_cast<std::int64_t>(std::floor(microseconds / 1e3L));
  const auto seconds = static_cast<std::time_t>(std::floor(milliseconds / 1e3L));
  std::tm parts;
  gmtime_r(&seconds, &parts);
  char text[64];
  const auto length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text + length, sizeof text - length, ".%03dZ",
                static_cast<int>(milliseconds - seconds * 1000));
  return text;
}

// Removes what nests too deep in a container that has `level` others around it.
void cut(Json& json, int level) {
  constexpr int kMaxDepth = 128;
  for (auto inner = json.begin(); inner != json.end();) {
    const bool isContainer = inner->is_structured() || *inner == kUnsendable;
    if (isContainer && level + 1 >= kMaxDepth) {
      inner = json.erase(inner);
    } else {
      if (inner->is_structured()) cut(*inner, level + 1);
      ++inner;
    }
  }
}

// Merges the properties of a layer into those of an event.
void lay(Json& event, const Json& layer) {
  for (const auto& [key, value] : layer.items()) {
    if (key != "extra_json")
      event[key] = value;
    else if (value.is_object())
      event[key].update(value);
  }
}

bool isUnsendable(const Json& json) {
  if (json.is_structured())
    for (const Json& inner : json)
      if (isUnsendable(inner)) return true;
  return json == kUnsendable;
}

// ---- The values ----

struct Release {
  void operator()(veltrano_object* object) const { veltrano_release(object); }
};
using Handle = std::unique_ptr<veltrano_object, Release>;

// A typed call of the C interface: sets the value for `key`, or appends it if that is null.
using TypedCall = std::function<bool(veltrano_object* to, const char* key)>;

template <class Append, class Set, class... Value>
TypedCall typedCall(Append append, Set set, Value... value) {
  return [=](veltrano_object* to, const char* key) {
    return key == nullptr ? append(to, value...) : set(to, key, value...);
  };
}

// The calls that make an object of a kind, and pass its value without one.
#define TYPED_CALL(kind, ...) \
  typedCall(veltrano_array_append_##kind, veltrano_dictionary_set_##kind __VA_OPT__(, ) __VA_ARGS__)
#define IN_C(kind, ...) veltrano_##kind(__VA_ARGS__), TYPED_CALL(kind, __VA_ARGS__)

// A value in each form in which it can be passed.
struct Value {
  Value(HostValue given, std::optional<Json> expected, veltrano_object* inC, TypedCall call = {})
      : own(std::move(given)), sent(std::move(expected)), object(inC), typed(std::move(call)) {}

  HostValue own;
  std::optional<Json> sent;  // none: left out
  Handle object;
  TypedCall typed;                  // none: passed as an object only
  std::optional<std::string> text;  // of what can be a key of a map
};

struct Map {
  HostMap own;
  Json sent = Json::object();
  Handle object{veltrano_dictionary()};
  std::vector<std::string> keys;
};

class Reader {
 public:
  Reader(const std::uint8_t* bytes, std::size_t size) : data_(bytes, size) {}

  bool flag() { return data_.ConsumeBool(); }

  std::string text() {
    static const std::string kTexts[] = {
        "",         "a",    "b",    "extra_json", "att_auth_status", "time",    "$wifi",
        "$carrier", "\xC3", "\xFF", "\xED\xA0",   "\xF0\x9F\x98",    "a\"\\\n", "uid"};
    const auto chosen = data_.ConsumeIntegralInRange<std::size_t>(0, 2 * std::size(kTexts));
    return chosen < std::size(kTexts) ? kTexts[chosen] : data_.ConsumeRandomLengthString(24);
  }

  Map map() { return mapOf(entries()); }

 private:
  using Entries = std::vector<std::pair<Value, Value>>;

  // Kinds of values, as the input numbers them; two are boxed numbers.
  static constexpr unsigned kNull = 9, kBoxed = 12, kAbsent = 15;

  int count() { return data_.ConsumeIntegralInRange(0, 4); }

  Entries entries() {
    Entries result;
    for (int i = count(); i > 0; --i) {
      Value key = textValue(text());
      result.emplace_back(std::move(key), value());
    }
    return result;
  }

  Value value() {
    unsigned kind = data_.ConsumeIntegralInRange(0U, kAbsent);
    if (left_ == 0 || data_.remaining_bytes() == 0) kind = kAbsent;
    if (left_ > 0) --left_;
    Value result = valueOf(kind);
    // Sometimes nests the value further, a little or up to about the limit.
    if (data_.ConsumeIntegralInRange(0, 15) == 15) {
      const int deepest = flag() ? 4 : 135;
      for (int i = data_.ConsumeIntegralInRange(deepest - 4, deepest); i > 0; --i) {
        if (i % 2 == 0) {
          Entries outer;
          outer.emplace_back(textValue("k"), std::move(result));
          result = dictionaryOf(outer);
        } else {
          std::vector<Value> outer;
          outer.push_back(std::move(result));
          result = arrayOf(outer);
        }
      }
    }
    return result;
  }

  Value valueOf(unsigned kind) {
    constexpr std::int64_t kFarthest = std::int64_t{1} << 51;  // exact as seconds in a double
    switch (kind) {
      case 0:
        return textValue(text());
      case 8: {
        const std::string& url = texts_.emplace_back(text());
        return {URL(url), wellFormed(url), veltrano_url({url.data(), url.size()}),
                isCString(url) ? TYPED_CALL(url, url.c_str()) : nullptr};
      }
      case 6: {
        const bool isSet = flag();
        return {isSet, isSet, IN_C(bool, isSet)};
      }
      case 7: {
        const auto time = data_.ConsumeIntegralInRange(-kFarthest, kFarthest);
        return {std::chrono::system_clock::time_point(std::chrono::microseconds(time)),
                iso8601(time), IN_C(date, static_cast<double>(time) / 1e6)};
      }
      case kNull:
        return {NSNull(), Json(), IN_C(null)};
      case 10: {
        std::vector<Value> elements;
        for (int i = count(); i > 0; --i) elements.push_back(value());
        return arrayOf(elements);
      }
      case 11: {
        Entries given = entries();
        if (!given.empty() && data_.ConsumeIntegralInRange(0, 7) == 0) {
          Value key = value();
          given[0].first = key.own.isAbsent() ? valueOf(kNull) : std::move(key);
        }
        return dictionaryOf(given);
      }
      case 14:
        return {OtherObject(), std::nullopt, veltrano_other_object()};
      case kAbsent:
        return {std::nullopt, std::nullopt, nullptr,
                TYPED_CALL(text, static_cast<const char*>(nullptr))};
      default:
        return numberOf(kind);
    }
  }

  Value numberOf(unsigned kind) {
    const int code = kind >= kBoxed ? data_.ConsumeIntegralInRange(-1, 20) : 0;
    const auto integer = data_.ConsumeIntegral<std::int64_t>();
    const double real =
        flag() ? static_cast<double>(integer) / 256 : std::bit_cast<double>(integer);
    const auto natural = static_cast<std::uint64_t>(integer);
    const auto single = static_cast<float>(real);
    switch (kind) {
      case 1:
        return {integer, integer, IN_C(int, integer)};
      case 2:
        return {natural, natural, IN_C(uint, natural)};
      case 3:
        return {Int64{integer}, integer, IN_C(int64, integer)};
      case 4:
        return {real, real, IN_C(double, real)};
      case 5:
        return {single, static_cast<double>(single), IN_C(float, single)};
      case kBoxed:
        return {NSNumber(code, integer), numberAsSent(code, integer), IN_C(number, code, integer)};
      default:
        return {NSNumber(code, real), numberAsSent(code, real),
                IN_C(number_with_double, code, real)};
    }
  }

  static bool isCString(const std::string& text) { return text.find('\0') == std::string::npos; }

  Value textValue(const std::string& given) {
    const std::string& kept = texts_.emplace_back(given);
    Value result(kept, wellFormed(kept), veltrano_string({kept.data(), kept.size()}),
                 isCString(kept) ? TYPED_CALL(text, kept.c_str()) : nullptr);
    result.text = kept;
    return result;
  }

  Value arrayOf(const std::vector<Value>& elements) const {
    std::vector<HostValue> own;
    Json sent = Json::array();
    veltrano_object* const object = veltrano_array();
    for (const Value& element : elements) {
      own.push_back(element.own);
      if (element.sent) sent.push_back(*element.sent);
      require(isTyped && element.typed ? element.typed(object, nullptr)
                                       : veltrano_array_append(object, element.object.get()),
              "appending");
    }
    return {Array(own), std::move(sent), object};
  }

  Value dictionaryOf(const Entries& given) {
    Map map = mapOf(given);
    const bool isMap = map.keys.size() == given.size();
    std::vector<DictionaryEntry> own;
    for (const auto& [key, value] : given) own.push_back({key.own, value.own});
    std::optional<Json> sent;
    if (!given.empty()) sent = isMap ? map.sent : kUnsendable;
    return {isMap && given.size() % 2 == 0 ? HostValue(map.own) : HostValue(Dictionary(own)),
            std::move(sent), map.object.release()};
  }

  // With the entries of text keys only, except in C.
  Map mapOf(const Entries& given) const {
    Map map;
    for (const auto& [key, value] : given) {
      require(set(map.object.get(), key, value), "setting");
      if (!key.text) continue;
      map.keys.push_back(*key.text);
      map.own.set(*key.text, value.own);
      const std::string sentKey = wellFormed(*key.text);
      if (std::count(kWithheld.begin(), kWithheld.end(), sentKey) > 0) continue;
      map.sent.erase(sentKey);
      if (value.sent) map.sent[sentKey] = *value.sent;
    }
    return map;
  }

  bool set(veltrano_object* to, const Value& key, const Value& value) const {
    if (!isTyped || !key.text || !isCString(*key.text))
      return veltrano_dictionary_set(to, key.object.get(), value.object.get());
    if (value.typed) return value.typed(to, key.text->c_str());
    return veltrano_dictionary_set_object(to, key.text->c_str(), value.object.get());
  }

  FuzzedDataProvider data_;
  int left_ = 100;
  std::deque<std::string> texts_;  // that typed calls pass

 public:
  const bool isTyped = flag();  // whether typed calls of C are used where possible
};

// ---- The library ----

class Fixture {
 public:
  Fixture() {
    Veltrano::isLoggerEnabled = true;
    Platform services = platform_.services();
    services.withheldProperties = kWithheld;
    require(Library::install(services), "install");
    platform_.network.onPost = [this](const PostRequest& post) { body_ = post.httpBody; };
    platform_.output.onLine = [this](std::string_view line) {
      if (line.find("Removed superProperty") != line.npos) removed += line.substr(line.find('|'));
    };
  }

  static void finish(void* fixture, bool accepted) {
    require(accepted, "the outcome");
    ++static_cast<Fixture*>(fixture)->completions_;
  }
  Veltrano::FlushCompletion completion() {
    return [this](bool accepted) { finish(this, accepted); };
  }

  // The event uploaded during `call` and the second after it, if there is one.
  template <class Call>
  std::optional<Json> sent(Call call) {
    Timeline& timeline = platform_.timeline;
    body_.clear();
    removed.clear();
    completions_ = 0;
    timeline.addStep(timeline.now(), call);
    require(timeline.runUntil(timeline.now() + std::chrono::seconds(1)), "a runaway");
    require(completions_ == 1, "completions", 1, completions_);
    if (body_.empty()) return std::nullopt;
    const Json batch = decoded();
    require(batch.size() == 1, "events", 1, batch.size());
    return batch[0];
  }

  std::string removed;  // what the log says of the super properties that `sent` removed

 private:
  Json decoded() const {
    require(body_.rfind("data=", 0) == 0, "the body");
    const std::string text = decodedBase64(std::string_view(body_).substr(5)).value_or("");
    std::vector<std::set<std::string>> keys;  // one set for each open object
    const auto expectUniqueKeys = [&](int, Json::parse_event_t event, Json& parsed) {
      if (event == Json::parse_event_t::object_start) keys.emplace_back();
      if (event == Json::parse_event_t::object_end) keys.pop_back();
      if (event == Json::parse_event_t::key)
        require(keys.back().insert(parsed).second, "a key twice", text);
      return true;
    };
    Json result = Json::parse(text, expectUniqueKeys, false);
    require(!result.is_discarded(), "JSON", text);
    return result;
  }

  SimulatedPlatform& platform_ = *new SimulatedPlatform;
  std::string body_;
  int completions_ = 0;
};

// ---- The calls of C ----

bool send(const char* selector, std::vector<veltrano_object*> arguments) {
  return veltrano_send(selector, arguments.data(), arguments.size(), nullptr, nullptr) ==
         VELTRANO_DONE;
}

void trackInC(bool isTyped, const std::string& name, veltrano_object* map, Fixture& fixture) {
  if (isTyped && name.find('\0') == std::string::npos)
    return require(veltrano_track(name.c_str(), map, Fixture::finish, &fixture), "tracking");
  const Handle event(veltrano_string({name.data(), name.size()}));
  const Handle completion(veltrano_boolean_block(Fixture::finish, &fixture, nullptr));
  require(send("trackWithEventName:eventProperties:forceFlushCompletion:",
               {event.get(), map, completion.get()}),
          "sending an event");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Fixture& fixture = *new Fixture;
  static const Json& kBase = *new Json([] {
    auto event =
        fixture.sent([] { Veltrano::shared().track("E", std::nullopt, fixture.completion()); });
    require(event.has_value(), "the first event");
    event->at("properties").erase("time");
    return event->at("properties");
  }());
  auto& tracker = Veltrano::shared();

  Reader reader(data, size);
  const std::string name = reader.text();
  const Map super = reader.map(), own = reader.map();
  std::optional<std::string> removed;  // what the log said of the previous road
  // `call` passes the maps. `level` is the number of containers that count as open around each.
  const auto compare = [&](const char* road, int level, const auto& call) {
    Json event = kBase;
    for (Json layer : {super.sent, own.sent}) {
      cut(layer, level);
      lay(event, layer);
    }
    const auto actual = fixture.sent([&] {
      call();
      for (const std::string& key : super.keys) tracker.removeSuperProperty(key);
    });
    // All roads lead to the same types, which only the log tells apart. With fewer brackets than
    // the levels that are kept, neither road has cut anything.
    if (removed && std::count(removed->begin(), removed->end(), '[') < 128)
      require(*removed == fixture.removed, road, *removed, fixture.removed);
    removed = fixture.removed;
    if (isUnsendable(event)) return require(!actual, road, "nothing", actual.value_or(Json()));
    require(actual.has_value(), road, event);
    if (!event.contains("time")) event["time"] = actual->at("properties").at("time");
    const Json expected = {{"event", wellFormed(name)}, {"properties", event}};
    // Compared as text, which distinguishes integers from real numbers.
    require(expected.dump() == actual->dump(), road, expected, *actual);
  };

  compare("own types", -1, [&] {
    tracker.setSuperProperties(super.own);
    tracker.track(name, own.own, fixture.completion());
  });
  compare("C", 0, [&] {
    require(reader.isTyped ? veltrano_set_super_properties(super.object.get())
                           : send("setSuperPropertiesWithProperties:", {super.object.get()}),
            "setting super properties");
    trackInC(reader.isTyped, name, own.object.get(), fixture);
  });
  return 0;
}

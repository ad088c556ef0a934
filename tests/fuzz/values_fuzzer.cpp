// Passes a tree of values to the library in every possible way, as super properties and as an
// event's own, and compares the upload, parsed by a JSON library that the product does not use,
// with the result of a naive converter.
#include <fuzzer/FuzzedDataProvider.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

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

// ---- The tree ----

enum class What {
  text,
  integer,
  unsignedInteger,
  int64,
  real,
  single,
  flag,
  date,
  url,
  null,
  array,
  dictionary,
  integerNumber,
  realNumber,
  other,
  absent,
  kMaxValue = absent,
};

struct Node {
  bool hasOtherKeys() const {
    for (std::size_t i = 0; i < items.size(); i += 2)
      if (items[i].what != What::text) return true;
    return false;
  }

  What what = What::absent;
  std::string text;          // text and URLs
  std::int64_t integer = 0;  // integers, flags and numbers; microseconds of a date
  double real = 0;
  int code = 0;             // numbers
  std::vector<Node> items;  // alternating keys and values for a dictionary
};

Node textNode(std::string text) {
  return {.what = What::text, .text = std::move(text), .items = {}};
}

Node container(What what, std::vector<Node> items) {
  return {.what = what, .text = {}, .items = std::move(items)};
}

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

  Node node() {
    Node result{.what = data_.ConsumeEnum<What>(), .text = {}, .items = {}};
    if (left_ == 0 || data_.remaining_bytes() == 0) result.what = What::absent;
    if (left_ > 0) --left_;
    constexpr std::int64_t kFarthest = std::int64_t{1} << 51;  // exact as seconds in a double
    switch (result.what) {
      case What::text:
      case What::url:
        result.text = text();
        break;
      case What::integerNumber:
      case What::realNumber:
        result.code = data_.ConsumeIntegralInRange(-1, 20);
        [[fallthrough]];
      case What::real:
      case What::single:
      case What::integer:
      case What::unsignedInteger:
      case What::int64:
        result.integer = data_.ConsumeIntegral<std::int64_t>();
        std::memcpy(&result.real, &result.integer, sizeof result.real);
        if (flag()) result.real = static_cast<double>(result.integer) / 256;
        break;
      case What::flag:
        result.integer = flag() ? 1 : 0;
        break;
      case What::date:
        result.integer = data_.ConsumeIntegralInRange(-kFarthest, kFarthest);
        break;
      case What::array:
        for (int i = count(); i > 0; --i) result.items.push_back(node());
        break;
      case What::dictionary:
        result = map();
        if (!result.items.empty() && data_.ConsumeIntegralInRange(0, 7) == 0) {
          result.items.front() = node();
          if (result.items.front().what == What::absent) result.items.front().what = What::null;
        }
        break;
      default:
        break;
    }
    // Sometimes nests the value further, a little or up to about the limit.
    if (data_.ConsumeIntegralInRange(0, 15) == 15) {
      const int deepest = flag() ? 4 : 135;
      for (int i = data_.ConsumeIntegralInRange(deepest - 4, deepest); i > 0; --i) {
        Node inner = std::exchange(result, container(What::array, {}));
        if (i % 2 == 0) {
          result = container(What::dictionary, {});
          result.items.push_back(textNode("k"));
        }
        result.items.push_back(std::move(inner));
      }
    }
    return result;
  }

  // A dictionary with text keys.
  Node map() {
    Node result = container(What::dictionary, {});
    for (int i = count(); i > 0; --i) {
      result.items.push_back(textNode(text()));
      result.items.push_back(node());
    }
    return result;
  }

 private:
  int count() { return data_.ConsumeIntegralInRange(0, 4); }

  FuzzedDataProvider data_;
  int left_ = 100;
};

// ---- The naive converter ----

// Left out of events, from whichever layer and at any depth. Sorted.
const std::vector<std::string> kWithheld = {"$wifi", "b"};

// Marks a value that makes its batch undeliverable.
const Json kUnsendable = Json::binary({});

std::string wellFormed(const std::string& text) {
  return Json::parse(Json(text).dump(-1, ' ', false, Json::error_handler_t::replace));
}

Json number(const Node& node) {
  const bool isReal = node.what == What::realNumber;
  const double real = isReal ? node.real : static_cast<double>(node.integer);
  if (node.code == 7) return real != 0;
  if (!std::set{1, 2, 3, 4, 9, 10, 11, 15}.contains(node.code)) return real;
  if (!isReal) return node.integer;
  if (std::isnan(real)) return 0;
  if (real >= 0x1p63) return INT64_MAX;
  return real <= -0x1p63 ? INT64_MIN : static_cast<std::int64_t>(real);
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

// None if events leave `node` out. `level` is the number of containers around it.
std::optional<Json> converted(const Node& node, int level) {
  constexpr int kMaxDepth = 128;
  const auto is = [&](What what) { return node.what == what; };
  if (is(What::text) || is(What::url)) return wellFormed(node.text);
  if (is(What::integer) || is(What::int64)) return node.integer;
  if (is(What::unsignedInteger)) return static_cast<std::uint64_t>(node.integer);
  if (is(What::real)) return node.real;
  if (is(What::single)) return static_cast<double>(static_cast<float>(node.real));
  if (is(What::flag)) return node.integer != 0;
  if (is(What::date)) return iso8601(node.integer);
  if (is(What::null)) return Json();
  if (is(What::integerNumber) || is(What::realNumber)) return number(node);
  if (is(What::other) || is(What::absent) || level >= kMaxDepth) return std::nullopt;
  if (is(What::array)) {
    Json result = Json::array();
    for (const Node& item : node.items)
      if (auto element = converted(item, level + 1)) result.push_back(*std::move(element));
    return result;
  }
  if (node.items.empty()) return std::nullopt;
  if (node.hasOtherKeys()) return kUnsendable;
  Json result = Json::object();
  for (std::size_t i = 0; i < node.items.size(); i += 2) {
    const std::string key = wellFormed(node.items[i].text);
    if (std::count(kWithheld.begin(), kWithheld.end(), key) > 0) continue;
    result.erase(key);
    if (auto value = converted(node.items[i + 1], level + 1)) result[key] = *std::move(value);
  }
  return result;
}

// Merges the properties in `map` into those of an event.
void lay(Json& event, const Node& map, int level) {
  const auto layer = converted(map, level);
  if (!layer) return;
  for (const auto& [key, value] : layer->items()) {
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
  return json.is_binary();
}

// ---- The world ----

class World {
 public:
  World() {
    Veltrano::isLoggerEnabled = true;  // covers the rendering of every value
    Platform services = platform_.services();
    services.withheldProperties = kWithheld;
    require(Library::install(services), "install");
    platform_.network.onPost = [this](const PostRequest& post) { body_ = post.httpBody; };
  }

  static void finish(void* world, bool accepted) {
    require(accepted, "the outcome");
    ++static_cast<World*>(world)->completions_;
  }
  Veltrano::FlushCompletion completion() {
    return [this](bool accepted) { finish(this, accepted); };
  }

  // The event uploaded during `call` and the second after it, if there is one.
  template <class Call>
  std::optional<Json> sent(Call call) {
    Timeline& timeline = platform_.timeline;
    body_.clear();
    completions_ = 0;
    timeline.addStep(timeline.now(), call);
    require(timeline.runUntil(timeline.now() + std::chrono::seconds(1)), "a runaway");
    require(completions_ == 1, "completions", 1, completions_);
    if (body_.empty()) return std::nullopt;
    const Json batch = decoded();
    require(batch.size() == 1, "events", 1, batch.size());
    return batch[0];
  }

 private:
  Json decoded() const {
    require(body_.rfind("data=", 0) == 0, "the body");
    std::string text(body_.size(), '\0');
    const int size = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                     reinterpret_cast<const unsigned char*>(body_.data()) + 5,
                                     static_cast<int>(body_.size()) - 5);
    require(size > 0, "Base64");
    text.resize(static_cast<std::size_t>(size));
    for (auto i = body_.size(); body_[i - 1] == '='; --i) text.pop_back();

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

// ---- The ways to pass values ----

HostValue scalar(const Node& node) {
  const auto is = [&](What what) { return node.what == what; };
  if (is(What::text)) return node.text;
  if (is(What::integer)) return node.integer;
  if (is(What::unsignedInteger)) return static_cast<std::uint64_t>(node.integer);
  if (is(What::int64)) return Int64{node.integer};
  if (is(What::real)) return node.real;
  if (is(What::single)) return static_cast<float>(node.real);
  if (is(What::flag)) return node.integer != 0;
  if (is(What::date))
    return std::chrono::system_clock::time_point(std::chrono::microseconds(node.integer));
  if (is(What::url)) return URL(node.text);
  if (is(What::null)) return NSNull();
  if (is(What::integerNumber)) return NSNumber(node.code, node.integer);
  if (is(What::realNumber)) return NSNumber(node.code, node.real);
  if (is(What::other)) return OtherObject();
  return std::nullopt;
}

// The library's own containers.
struct OwnTypes {
  static HostValue value(const Node& node) {
    if (node.what == What::array) {
      std::vector<HostValue> elements;
      for (const Node& item : node.items) elements.push_back(value(item));
      return Array(elements);
    }
    if (node.what != What::dictionary) return scalar(node);
    if (!node.hasOtherKeys() && node.items.size() % 4 == 0) return map(node);
    std::vector<DictionaryEntry> entries;
    for (std::size_t i = 0; i < node.items.size(); i += 2)
      entries.push_back({value(node.items[i]), value(node.items[i + 1])});
    return Dictionary(entries);
  }

  static HostMap map(const Node& node) {
    HostMap map;
    for (std::size_t i = 0; i < node.items.size(); i += 2)
      map.set(node.items[i].text, value(node.items[i + 1]));
    return map;
  }
};

// Objects of the C interface, passed by the typed calls or by objects and messages.
class CObjects {
 public:
  explicit CObjects(bool isTyped) : isTyped_(isTyped) {}

  struct Release {
    void operator()(veltrano_object* object) const { veltrano_release(object); }
  };
  using Handle = std::unique_ptr<veltrano_object, Release>;

  Handle object(const Node& node) const { return Handle(make(node)); }

  void setSuperProperties(veltrano_object* map) const {
    const bool isDone = isTyped_ ? veltrano_set_super_properties(map)
                                 : send("setSuperPropertiesWithProperties:", {map});
    require(isDone, "setting super properties");
  }

  void track(const std::string& name, veltrano_object* map, World& world) const {
    if (isTyped_ && name.find('\0') == std::string::npos)
      return require(veltrano_track(name.c_str(), map, World::finish, &world), "tracking");
    const Handle event = object(textNode(name));
    const Handle completion(veltrano_boolean_block(World::finish, &world, nullptr));
    const bool isDone = send("trackWithEventName:eventProperties:forceFlushCompletion:",
                             {event.get(), map, completion.get()});
    require(isDone, "sending an event");
  }

 private:
  static bool send(const char* selector, std::vector<veltrano_object*> arguments) {
    return veltrano_send(selector, arguments.data(), arguments.size(), nullptr, nullptr) ==
           VELTRANO_DONE;
  }

  // Calls `use` with the three functions for a scalar that is not text, and its value.
  template <class Use>
  static auto withCallsFor(const Node& node, Use use) {
    const auto is = [&](What what) { return node.what == what; };
#define CALLS(kind) veltrano_##kind, veltrano_array_append_##kind, veltrano_dictionary_set_##kind
    if (is(What::integer)) return use(CALLS(int), node.integer);
    if (is(What::unsignedInteger))
      return use(CALLS(uint), static_cast<std::uint64_t>(node.integer));
    if (is(What::int64)) return use(CALLS(int64), node.integer);
    if (is(What::real)) return use(CALLS(double), node.real);
    if (is(What::single)) return use(CALLS(float), static_cast<float>(node.real));
    if (is(What::flag)) return use(CALLS(bool), node.integer != 0);
    if (is(What::date)) return use(CALLS(date), static_cast<double>(node.integer) / 1e6);
    if (is(What::integerNumber)) return use(CALLS(number), node.code, node.integer);
    if (is(What::realNumber)) return use(CALLS(number_with_double), node.code, node.real);
    require(is(What::null), "a kind");
    return use(CALLS(null));
#undef CALLS
  }

  veltrano_object* make(const Node& node) const {
    const auto is = [&](What what) { return node.what == what; };
    const veltrano_text text{node.text.data(), node.text.size()};
    if (is(What::text)) return veltrano_string(text);
    if (is(What::url)) return veltrano_url(text);
    if (is(What::other)) return veltrano_other_object();
    if (is(What::absent)) return nullptr;
    if (is(What::array)) {
      veltrano_object* const array = veltrano_array();
      for (const Node& item : node.items) require(add(array, nullptr, item), "appending");
      return array;
    }
    if (is(What::dictionary)) {
      veltrano_object* const dictionary = veltrano_dictionary();
      for (std::size_t i = 0; i < node.items.size(); i += 2)
        require(add(dictionary, &node.items[i], node.items[i + 1]), "setting");
      return dictionary;
    }
    return withCallsFor(node, [](auto call, auto, auto, auto... value) { return call(value...); });
  }

  // Adds to an array, or to a dictionary under `key`.
  bool add(veltrano_object* to, const Node* key, const Node& node) const {
    const auto is = [&](What what) { return node.what == what; };
    const auto isCString = [](const Node& n) { return n.text.find('\0') == std::string::npos; };
    if (!isTyped_ || !isCString(node) ||
        (key != nullptr && (key->what != What::text || !isCString(*key)))) {
      const Handle value = object(node);
      return key == nullptr ? veltrano_array_append(to, value.get())
                            : veltrano_dictionary_set(to, object(*key).get(), value.get());
    }
    const auto call = [&](auto, auto append, auto set, auto... value) {
      return key == nullptr ? append(to, value...) : set(to, key->text.c_str(), value...);
    };
    if (is(What::text) || is(What::absent))
      return call(0, veltrano_array_append_text, veltrano_dictionary_set_text,
                  is(What::text) ? node.text.c_str() : nullptr);
    if (is(What::url))
      return call(0, veltrano_array_append_url, veltrano_dictionary_set_url, node.text.c_str());
    if (is(What::array) || is(What::dictionary) || is(What::other))
      return call(0, veltrano_array_append, veltrano_dictionary_set_object, object(node).get());
    return withCallsFor(node, call);
  }

  const bool isTyped_;
};

// ---- The comparison ----

struct Comparison {
  // `call` passes the trees. `level` is the number of containers that count as open around each.
  template <class Call>
  void operator()(const char* road, const Node& superProperties, const Node& properties, int level,
                  Call call) const {
    Json event = base;
    lay(event, superProperties, level);
    lay(event, properties, level);
    const auto actual = world.sent([&] {
      call();
      for (std::size_t i = 0; i < superProperties.items.size(); i += 2)
        Veltrano::shared().removeSuperProperty(superProperties.items[i].text);
    });
    if (isUnsendable(event)) return require(!actual, road, "nothing", actual.value_or(Json()));
    require(actual.has_value(), road, event);
    if (!event.contains("time")) event["time"] = actual->at("properties").at("time");
    const Json expected = {{"event", wellFormed(name)}, {"properties", event}};
    // Compared as text, which distinguishes integers from real numbers.
    require(expected.dump() == actual->dump(), road, expected, *actual);
  }

  World& world;
  const Json& base;  // the properties of every event
  const std::string& name;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static World& world = *new World;
  static const Json& kBase = *new Json([] {
    auto event =
        world.sent([] { Veltrano::shared().track("E", std::nullopt, world.completion()); });
    require(event.has_value(), "the first event");
    event->at("properties").erase("time");
    return event->at("properties");
  }());
  auto& tracker = Veltrano::shared();

  Reader reader(data, size);
  const CObjects c(reader.flag());
  const std::string name = reader.text();
  const Node super = reader.map(), own = reader.map();
  const Comparison compare{world, kBase, name};

  compare("own types", super, own, -1, [&] {
    tracker.setSuperProperties(OwnTypes::map(super));
    tracker.track(name, OwnTypes::map(own), world.completion());
  });
  compare("C", super, own, 0, [&] {
    c.setSuperProperties(c.object(super).get());
    c.track(name, c.object(own).get(), world);
  });
  return 0;
}

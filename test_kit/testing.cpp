// What a test sees of a world, and its rules for the network.
#include <algorithm>
#include <utility>

#include "test_kit/json.h"
#include "test_kit/world_network.h"
#include "veltrano/testing.h"

namespace veltrano::testing {
namespace {

// As good as no answer, and far from an overflow.
constexpr Duration kMaxLatency = std::chrono::hours(24 * 36'525);

std::string listOf(const std::vector<std::string>& names) {
  return names.empty() ? "none" : joined(names);
}

// Keys may contain dots: a key that equals the whole path wins.
std::optional<HostValue> find(const HostMap& map, std::string_view path);

// The value at `path` in a map, or in a list, where a number is an index.
std::optional<HostValue> find(const HostValue& value, std::string_view path) {
  if (const auto map = mapIn(value)) return find(*map, path);
  const auto list = value.member() != nullptr ? value.member()->getIf<Array>() : std::nullopt;
  std::string_view number = path.substr(0, path.find('.'));
  if (!list) return std::nullopt;
  std::size_t index = 0;
  for (const HostValue& item : *list) {
    if (std::to_string(index++) != number) continue;
    return number == path ? std::optional(item) : find(item, path.substr(number.size() + 1));
  }
  return std::nullopt;
}

std::optional<HostValue> find(const HostMap& map, std::string_view path) {
  std::optional<HostValue> found;
  for (const auto& [key, value] : map) {
    if (key == path) return value;
    if (found || path.size() <= key.size() + 1 || path.substr(0, key.size()) != key ||
        path[key.size()] != '.')
      continue;
    found = find(value, path.substr(key.size() + 1));
  }
  return found;
}

// As compilers begin a message, for tools that jump there.
std::string at(const char* file, int line) {
  if (line == 0) return {};
  const std::string_view path(file);
  return std::string(path.substr(path.rfind('/') + 1)) + ':' + std::to_string(line) + ": ";
}

std::string quoted(std::string_view text) {
  return '"' + std::string(text) + '"';
}

// Throws for a status that no trace can hold.
void checkStatus(const Answer& answer) {
  constexpr int kMaxStatus = 999;
  if (!answer.isTransportError && (answer.status < 0 || answer.status > kMaxStatus))
    throw Error("The status " + std::to_string(answer.status) + " is not between 0 and 999.");
}

}  // namespace

void detail::throwNoSuchItem(const Index& index, std::size_t size, const std::string& what) {
  throw Error(at(index.file, index.line) + "There is no item " + std::to_string(index.value) +
              " in a list of " + std::to_string(size) + what + '.');
}

HostValue Properties::operator[](const Path& path) const {
  if (auto value = find(values_, path.text)) return *std::move(value);
  std::vector<std::string> keys;
  for (const auto& [key, value] : values_) keys.push_back(key);
  throw Error(at(path.file, path.line) + "There is no " + quoted(path.text) +
              " among: " + listOf(keys));
}

bool Properties::has(std::string_view path) const {
  return find(values_, path).has_value();
}

Event::Event(std::string name, HostMap values, Origins origins, Duration recordedAt)
    : Properties(std::move(values)),
      name_(std::move(name)),
      origins_(std::move(origins)),
      recordedAt_(recordedAt) {}

Origin Event::origin(const Path& path) const {
  static_cast<void>((*this)[path]);  // throws when there is none
  // A nested value has the origin of the map around it, except in "extra_json", which is merged.
  for (std::string_view asked = path.text;; asked = asked.substr(0, asked.rfind('.'))) {
    if (const auto known = origins_.find(asked); known != origins_.end()) return known->second;
    const auto end = asked.rfind('.');
    if (end == std::string_view::npos || asked.substr(0, end) == "extra_json")
      return Origin::automatic;
  }
}

std::ostream& operator<<(std::ostream& out, Time time) {
  return out << std::to_string(std::chrono::duration<double>(time).count()) << " s";
}

std::ostream& operator<<(std::ostream& out, const Event& event) {
  return out << event.name() << ' ' << event.values();
}

Events::Events(std::vector<Event> events, const std::vector<std::string>& waiting)
    : List(std::move(events)) {
  std::vector<std::string> names;
  for (const Event& event : *this) names.push_back(event.name());
  what_ = " events; delivered were: " + listOf(names) + "; waiting: " + listOf(waiting);
}

Events Events::named(std::string_view name) const {
  std::vector<Event> events;
  std::copy_if(begin(), end(), std::back_inserter(events),
               [&](const Event& event) { return event.name() == name; });
  return {std::move(events), *this};
}

Events Events::with(const HostMap& properties) const {
  std::vector<Event> events;
  std::copy_if(begin(), end(), std::back_inserter(events), [&](const Event& event) {
    return std::all_of(properties.begin(), properties.end(), [&](const HostMapEntry& property) {
      return event.has(property.key) && event[property.key] == property.value;
    });
  });
  Events matching(std::move(events), *this);
  matching.what_ += "; with these properties: " + std::to_string(matching.size());
  return matching;
}

Event Events::only(std::string_view name, const char* file, int line) const {
  const Events events = named(name);
  if (events.size() == 1) return events.front();
  throw Error(at(file, line) + std::to_string(events.size()) + " delivered events are called " +
              quoted(name) + what_.substr(what_.find(';')));
}

std::string Heartbeat::sessionId() const {
  return *(*this)["session_id"].member()->getIf<std::string>();
}

std::string Heartbeat::userId() const {
  return *(*this)["uid"].member()->getIf<std::string>();
}

std::ostream& operator<<(std::ostream& out, const Heartbeat& heartbeat) {
  return out << "at " << heartbeat.at() << ' ' << heartbeat.values();
}

std::ostream& operator<<(std::ostream& out, const Request& request) {
  return out << "at " << request.at << ' ' << request.path << ' ' << request.body;
}

Rule& Network::answer(int status, std::optional<std::string> body,
                      std::map<std::string, std::string> headers) {
  Answer given{status, std::move(body)};
  given.headers = std::move(headers);
  return answer(std::move(given));
}

Rule& Network::answer(Answer answer) {
  checkStatus(answer);
  return this->answer([answer = std::move(answer)](const Request&) { return answer; });
}

Rule& Network::fail() {
  return answer(transportError());
}

std::optional<Answer> Network::answerTo(const Request& request) {
  auto rule = std::find_if(rules_.begin(), rules_.end(),
                           [](const Rule& it) { return it.left_.value_or(0) > 0; });
  if (rule == rules_.end()) {
    const auto latest =
        std::find_if(rules_.rbegin(), rules_.rend(), [](const Rule& it) { return !it.left_; });
    if (latest == rules_.rend()) return std::nullopt;
    rule = std::prev(latest.base());
  } else {
    --*rule->left_;
  }
  const Rule& used = *rule;  // a reference, because the function may add rules
  Answer answer = used.answer_(request);
  checkStatus(answer);
  answer.latency =
      std::clamp(used.latency_.value_or(answer.latency), Duration::zero(), kMaxLatency);
  return answer;
}

}  // namespace veltrano::testing

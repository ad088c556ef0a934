#include "tools/collector/journal.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "tools/json_text.h"

namespace collector {
namespace {

constexpr const char* kNames[] = {"event", "heartbeat", "refused", "request"};

// Of a refused request.
constexpr std::size_t kMaximumBody = 4096;

// How much a reader gets at once.
constexpr std::size_t kMaximumPart = 256 * 1024;

// The text, or, if it is not UTF-8, the text without its foreign bytes.
std::string readable(std::string text) {
  if (!isUTF8(text))
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c >= 0x80; }, '?');
  return text;
}

std::string shortened(std::string text) {
  if (text.size() <= kMaximumBody) return text;
  std::size_t end = kMaximumBody;
  while (end > 0 && (text[end] & 0xC0) == 0x80) --end;  // between characters
  return text.substr(0, end) + "...";
}

void addTo(std::string& stream, const char* kind, const std::string& json) {
  stream.append("event: ").append(kind).append("\ndata: ").append(json).append("\n\n");
}

std::string listOf(const std::vector<std::string>& texts) {
  std::string list = "[";
  for (const std::string& text : texts)
    list.append(list.size() > 1 ? "," : "").append(tools::json(text));
  return list + ']';
}

}  // namespace

void Journal::addAccepted(const WireRequest& request, const WireMessage& message, int answer,
                          const Violations& violations) {
  const auto add = [&](Kind kind, const rapidjson::Value& record, std::string_view text,
                       std::string_view notAsPlanned) {
    Members members{{"uid", tools::json(message.uid)}, {"answer", tools::json(answer)}};
    if (!notAsPlanned.empty()) members.emplace_back("violations", notAsPlanned);
    members.emplace_back("body", text);  // the last one: the page takes the rest as sent
    this->add(kind, {record["event"].GetString(), record["event"].GetStringLength()},
              std::move(members), !notAsPlanned.empty());
  };
  if (request.path == "/heartbeat") return add(Kind::heartbeat, message.body, message.json, "");
  rapidjson::SizeType i = 0;
  for (const std::string_view text : elementsOf(message.json)) {
    const bool isAsPlanned = violations.empty() || violations[i].empty();
    add(Kind::event, message.body[i], text, isAsPlanned ? "" : listOf(violations[i]));
    ++i;
  }
}

void Journal::addRequest(const WireRequest& request, int answer, bool isAccepted) {
  add(Kind::request, "",
      {{"path", tools::json(request.path)},
       {"answer", tools::json(answer)},
       {"accepted", tools::json(isAccepted)}});
}

void Journal::addRefused(const WireRequest& request, const WireMessage& message, int status,
                         const std::string& reason) {
  std::string headers = "[";
  for (const auto& [name, value] : request.headers) {
    if (headers.size() > 1) headers += ',';
    headers += tools::json(readable(shortened(name + ": " + value)));
  }
  headers += ']';
  const std::string& body = message.json.empty() ? request.body : message.json;
  add(Kind::refused, "",
      {{"method", tools::json(readable(request.method))},
       {"path", tools::json(readable(request.path))},
       {"answer", tools::json(status)},
       {"reason", tools::json(readable(reason))},
       {"headers", headers},
       {"body", tools::json(readable(shortened(body)))}});
}

void Journal::add(Kind kind, std::string name, Members members, bool isViolation) {
  const std::lock_guard lock(mutex_);
  const std::uint64_t number = ++lastNumber_;
  auto& [kept, bytes] = entries_[std::size_t(kind)];
  const auto since1970 = std::chrono::system_clock::now().time_since_epoch();
  const auto received = std::chrono::duration_cast<std::chrono::milliseconds>(since1970).count();
  members.insert(members.begin(),
                 {{"number", tools::json(number)}, {"received", tools::json(received)}});
  kept.push_back({number, std::move(name), tools::jsonObject(members), isViolation});
  bytes += kept.back().json.size();
  while (kept.size() > kMaximumEntries || (bytes > kMaximumBytes && kept.size() > 1)) {
    bytes -= kept.front().json.size();
    kept.pop_front();
  }
  changed_.notify_all();
}

void Journal::setFaults(std::string json) {
  const std::lock_guard lock(mutex_);
  faults_ = std::move(json);
  ++faultChanges_;
  changed_.notify_all();
}

void Journal::clear() {
  const std::lock_guard lock(mutex_);
  entries_ = {};
  ++clearings_;
  changed_.notify_all();
}

std::string Journal::json(Kind kind, bool onlyViolations) const {
  const std::lock_guard lock(mutex_);
  std::string array = "[";
  for (const Entry& entry : entries_[std::size_t(kind)].kept)
    if (!onlyViolations || entry.isViolation)
      array.append(array.size() > 1 ? ",\n" : "").append(entry.json);
  return array + "]\n";
}

std::uint64_t Journal::wait(std::string_view name, std::uint64_t count,
                            std::chrono::milliseconds timeout) {
  std::uint64_t seen = 0, lastNumber = 0;
  const auto haveCome = [&] {
    for (const Kind kind : {Kind::event, Kind::heartbeat}) {
      const auto& kept = entries_[std::size_t(kind)].kept;
      for (auto entry = kept.rbegin(); entry != kept.rend() && entry->number > lastNumber; ++entry)
        if (entry->name == name) ++seen;
    }
    lastNumber = lastNumber_;
    return seen >= count || isStopped_;
  };
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, timeout, haveCome);
  return seen;
}

std::string Journal::next(Position& position, std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, timeout, [&] {
    return isStopped_ || position.number < lastNumber_ || position.clearings != clearings_ ||
           position.faultChanges != faultChanges_;
  });
  std::string stream;
  if (isStopped_) return stream;
  if (position.clearings != clearings_) {
    position = {0, clearings_, position.faultChanges};
    addTo(stream, "clear", "{}");
  }
  if (position.faultChanges != faultChanges_) {
    position.faultChanges = faultChanges_;
    addTo(stream, "faults", faults_);
  }

  std::deque<Entry>::const_iterator following[std::size(kNames)];
  for (std::size_t kind = 0; kind < std::size(kNames); ++kind)
    following[kind] = std::upper_bound(
        entries_[kind].kept.begin(), entries_[kind].kept.end(), position.number,
        [](std::uint64_t number, const Entry& entry) { return number < entry.number; });
  while (stream.size() < kMaximumPart) {
    std::size_t first = std::size(kNames);
    for (std::size_t kind = 0; kind < std::size(kNames); ++kind)
      if (following[kind] != entries_[kind].kept.end() &&
          (first == std::size(kNames) || following[kind]->number < following[first]->number))
        first = kind;
    if (first == std::size(kNames)) {
      position.number = lastNumber_;
      break;
    }
    addTo(stream, kNames[first], following[first]->json);
    position.number = following[first]++->number;
  }
  return stream;
}

void Journal::stop() {
  const std::lock_guard lock(mutex_);
  isStopped_ = true;
  changed_.notify_all();
}

bool Journal::isStopped() const {
  const std::lock_guard lock(mutex_);
  return isStopped_;
}

}  // namespace collector

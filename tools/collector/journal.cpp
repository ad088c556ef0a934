#include "tools/collector/journal.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace collector {

using namespace veltrano::internal;

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

}  // namespace

void Journal::addAccepted(const httplib::Request& request, const WireMessage& message, int answer,
                          const Violations& violations) {
  const auto add = [&](Kind kind, const rapidjson::Value& record, std::string_view text,
                       std::string_view notAsPlanned) {
    JSONMembers members{{"uid", json(message.uid)}, {"answer", json(answer)}};
    if (!notAsPlanned.empty()) members.emplace_back("violations", notAsPlanned);
    members.emplace_back("body", text);  // the last one: the page takes the rest as sent
    this->add(kind, {record["event"].GetString(), record["event"].GetStringLength()},
              std::move(members), !notAsPlanned.empty());
  };
  if (request.path == "/heartbeat") return add(Kind::heartbeat, message.body, message.json, "");
  rapidjson::SizeType i = 0;
  for (const std::string_view text : elementsOf(message.json)) {
    const bool isAsPlanned = violations.empty() || violations[i].empty();
    add(Kind::event, message.body[i], text, isAsPlanned ? "" : jsonTexts(violations[i]));
    ++i;
  }
}

void Journal::addRequest(const httplib::Request& request, int answer, bool isAccepted) {
  add(Kind::request, "",
      {{"path", json(request.path)}, {"answer", json(answer)}, {"accepted", json(isAccepted)}});
}

void Journal::addRefused(const httplib::Request& request, const WireMessage& message, int status,
                         const std::string& reason) {
  std::vector<std::string> headers;
  for (const auto& [name, value] : request.headers)
    headers.push_back(readable(shortened(std::string(name).append(": ").append(value))));
  std::sort(headers.begin(), headers.end());  // newer versions of the server do not
  const std::string& body = message.json.empty() ? request.body : message.json;
  add(Kind::refused, "",
      {{"method", json(readable(request.method))},
       {"path", json(readable(request.path))},
       {"answer", json(status)},
       {"reason", json(readable(reason))},
       {"headers", jsonTexts(headers)},
       {"body", json(readable(shortened(body)))}});
}

void Journal::add(Kind kind, std::string name, JSONMembers members, bool isViolation) {
  const Lock lock(mutex_);
  const std::uint64_t number = ++lastNumber_;
  const auto since1970 = std::chrono::system_clock::now().time_since_epoch();
  const auto received = std::chrono::duration_cast<std::chrono::milliseconds>(since1970).count();
  members.insert(members.begin(), {{"number", json(number)}, {"received", json(received)}});
  const auto& json =
      entries_.insert({number, {kind, std::move(name), jsonObject(members), isViolation}})
          .first->second.json;
  auto& [numbers, bytes] = kept_[std::size_t(kind)];
  numbers.push_back(number);
  bytes += json.size();
  while (numbers.size() > kMaximumEntries || (bytes > kMaximumBytes && numbers.size() > 1)) {
    const auto oldest = entries_.find(numbers.front());
    bytes -= oldest->second.json.size();
    entries_.erase(oldest);
    numbers.pop_front();
  }
  changed_.notify_all();
}

void Journal::setFaults(std::string json) {
  const Lock lock(mutex_);
  faults_ = std::move(json);
  ++faultChanges_;
  changed_.notify_all();
}

void Journal::clear() {
  const Lock lock(mutex_);
  entries_.clear();
  kept_ = {};
  ++clearings_;
  changed_.notify_all();
}

std::string Journal::list(Kind kind, bool onlyViolations) const {
  const Lock lock(mutex_);
  std::string array = "[";
  for (const auto& [number, entry] : entries_)
    if (entry.kind == kind && (!onlyViolations || entry.isViolation))
      array.append(array.size() > 1 ? ",\n" : "").append(entry.json);
  return array + "]\n";
}

std::uint64_t Journal::wait(std::string_view name, std::uint64_t count,
                            std::chrono::milliseconds timeout) {
  std::uint64_t seen = 0, lastNumber = 0;
  const auto haveArrived = [&]() REQUIRES(mutex_) {
    for (auto entry = entries_.upper_bound(lastNumber); entry != entries_.end(); ++entry)
      seen += entry->second.name == name;
    lastNumber = lastNumber_;
    return seen >= count || isStopped_;
  };
  Lock lock(mutex_);
  changed_.wait_for(lock.standard(), timeout, haveArrived);
  return seen;
}

std::string Journal::next(Position& position, std::chrono::milliseconds timeout) {
  Lock lock(mutex_);
  changed_.wait_for(lock.standard(), timeout, [&]() REQUIRES(mutex_) {
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

  auto entry = entries_.upper_bound(position.number);
  for (; entry != entries_.end() && stream.size() < kMaximumPart; ++entry) {
    addTo(stream, kNames[std::size_t(entry->second.kind)], entry->second.json);
    position.number = entry->first;
  }
  if (entry == entries_.end()) position.number = lastNumber_;
  return stream;
}

void Journal::stop() {
  const Lock lock(mutex_);
  isStopped_ = true;
  changed_.notify_all();
}

bool Journal::isStopped() const {
  const Lock lock(mutex_);
  return isStopped_;
}

}  // namespace collector

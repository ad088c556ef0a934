#include "test_kit/recorder.h"

#include <algorithm>
#include <optional>
#include <sstream>
#include <utility>

#include "test_kit/json.h"
#include "veltrano/veltrano.h"

namespace veltrano::testing {
namespace {

using internal::JSONWriter;

// The members that `write` writes, without the braces around them.
template <class Write>
std::string membersText(Write write) {
  JSONWriter writer;
  writer.startObject();
  write(writer);
  writer.endObject();
  const std::string_view object = writer.text();
  return std::string(object.substr(1, object.size() - 2));
}

std::string operationText(std::string_view operation, const Recorder::WriteFields& writeFields) {
  return membersText([&](JSONWriter& writer) {
    writer.key("op");
    writer.string(operation);
    if (writeFields) writeFields(writer);
  });
}

// Seconds with six decimals.
std::string secondsText(Duration time) {
  constexpr int kMillion = 1'000'000;
  const std::string decimals = std::to_string(kMillion + time.count() % kMillion);
  return std::to_string(time.count() / kMillion) + '.' + decimals.substr(1);
}

}  // namespace

void Recorder::setBeforeAll(bool isBeforeAll) {
  const internal::Lock lock(mutex_);
  noteLogSwitch();
  if (!steps_.empty()) steps_.back().isClosed = true;
  isBeforeAll_ = isBeforeAll;
}

std::vector<std::string>& Recorder::operationsNow() {
  Duration at = isBeforeAll_ ? clock_() : clock_() + Duration(1);
  if (!steps_.empty()) at = std::max(at, steps_.back().at);
  if (steps_.empty() || steps_.back().isClosed || steps_.back().at != at)
    steps_.push_back({at, false, {}, false});
  return steps_.back().operations;
}

// Polls the log's switch, because the host sets it without a call.
void Recorder::noteLogSwitch() {
  const bool isOn = Veltrano::isLoggerEnabled;
  if (hasEnded_ || std::exchange(isLogOn_, isOn) == isOn) return;
  operationsNow().push_back(operationText("enableLog", [isOn](JSONWriter& writer) {
    writer.key("on");
    writer.boolean(isOn);
  }));
}

void Recorder::add(std::string_view operation, const WriteFields& writeFields) {
  std::string text = operationText(operation, writeFields);
  const internal::Lock lock(mutex_);
  if (hasEnded_) return;
  noteLogSwitch();
  operationsNow().push_back(std::move(text));
}

void Recorder::addCall(std::string_view operation, const HostMap& arguments, bool hasRunLoop) {
  const internal::Lock lock(mutex_);
  if (hasEnded_) return;
  noteLogSwitch();
  int number = callbacks_;
  operationsNow().push_back(operationText(operation, [&](JSONWriter& writer) {
    for (const auto& [key, value] : arguments) {
      const auto* member = value.member();
      if (key == "completion" || key == "handler") {
        const bool isGiven = *member->getIf<bool>();
        if (!isGiven && key == "completion") continue;
        writer.key(key);
        isGiven ? writer.string(key + ' ' + std::to_string(++number)) : writer.null();
      } else if (key != "properties") {
        writer.key(key);
        writeScenarioValue(writer, value);
      } else if (operation != "track" || !value.isAbsent()) {
        writer.key(key);
        writeScenarioMap(writer, mapIn(value).value_or(HostMap()));
      }
    }
    if (operation != "setUserId" || hasRunLoop) return;
    writer.key("runLoop");
    writer.boolean(false);
  }));
  callbacks_ = number;
}

void Recorder::addAnswer(const std::string& path, const Answer& answer) {
  const std::string step = operationText("network", [&](JSONWriter& writer) {
    writer.key("path");
    writer.string(path);
    writer.key(answer.isTransportError ? "error" : "status");
    if (answer.isTransportError)
      writer.boolean(true);
    else
      writer.integer(answer.status);
    if (answer.body && !answer.isTransportError) {
      writer.key("body");
      writer.string(*answer.body);
    }
    writer.members("\"latency\":" + secondsText(answer.latency));
  });
  const internal::Lock lock(mutex_);
  if (std::exchange(answers_[path], step) == step) return;
  // Before the step that caused the post, behind earlier answers of that instant.
  const Duration now = clock_();
  const auto place = std::find_if(steps_.begin(), steps_.end(), [&](const Step& other) {
    return other.at > now || (other.at == now && !other.isAnswer);
  });
  steps_.insert(place, {now, true, {step}, true});
}

void Recorder::end(Duration time) {
  const internal::Lock lock(mutex_);
  noteLogSwitch();
  steps_.push_back({time, true, {operationText("end", nullptr)}, false});
  hasEnded_ = true;
}

void Recorder::addPost(const internal::PostRequest& post) {
  const auto writeMap = [](JSONWriter& writer, const auto& map) {
    writer.startObject();
    for (const auto& [key, value] : map) {
      writer.key(key);
      writer.string(value);
    }
    writer.endObject();
  };
  std::string at = secondsText(clock_());
  at.erase(at.find_last_not_of('0') + 1);
  if (at.back() == '.') at.pop_back();
  const std::string line = membersText([&](JSONWriter& writer) {
    writer.members("\"at\":" + at);
    writer.key("post");
    writer.startObject();
    writer.key("url");
    writer.string(std::string("https://") + internal::kSimulatedCollectionHost + post.path());
    writer.key("method");
    writer.string("POST");
    writer.key("query");
    writeMap(writer, post.qsParameters);
    writer.key("headers");
    writeMap(writer, post.headerParameters);
    writer.key("body");
    writer.string(post.httpBody);
    writer.key("authenticated");
    writer.boolean(post.interceptor != nullptr);
    writer.endObject();
  });
  const internal::Lock lock(mutex_);
  posts_.append("{").append(line).append("}\n");
}

std::string Recorder::posts() const {
  const internal::Lock lock(mutex_);
  return posts_;
}

std::string Recorder::scenario(const internal::DeviceFacts& device,
                               const std::optional<HostMap>& info,
                               const std::map<std::string, double>& settings) const {
  const auto writeConfiguration = [&](JSONWriter& writer) {
    writer.key("screen");
    writer.startArray();
    writer.number(device.screen.width);
    writer.number(device.screen.height);
    writer.endArray();
    writer.key("systemName");
    writer.string(device.name);
    writer.key("systemVersion");
    writer.string(device.version);
    writer.key("machine");
    writer.string(device.machineName);
    if (!settings.empty()) {
      writer.key("defaults");
      writer.startObject();
      for (const auto& [key, value] : settings) {
        writer.key(key);
        writer.number(value);
      }
      writer.endObject();
    }
    if (!info) return;
    writer.key("info");
    writeScenarioMap(writer, *info);
  };
  std::ostringstream text;
  text << '{' << operationText("configure", writeConfiguration) << "}\n";
  const internal::Lock lock(mutex_);
  std::vector<Step> steps = steps_;
  if (!hasEnded_) {
    const Duration end = steps.empty() ? clock_() : std::max(clock_(), steps.back().at);
    // The end joins the open batch, if there is one.
    if (steps.empty() || steps.back().isClosed) steps.push_back({end, false, {}, false});
    steps.back().operations.push_back(operationText("end", nullptr));
  }
  for (const auto& [at, isClosed, operations, isAnswer] : steps) {
    text << "{\"at\":" << secondsText(at) << ',';
    if (operations.size() == 1) {
      text << operations.front();
    } else {
      text << "\"op\":\"batch\",\"steps\":[";
      const char* separator = "{";
      for (const std::string& operation : operations)
        text << std::exchange(separator, ",{") << operation << '}';
      text << ']';
    }
    text << "}\n";
  }
  return text.str();
}

}  // namespace veltrano::testing

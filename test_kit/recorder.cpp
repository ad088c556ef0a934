#include "test_kit/recorder.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "platform/simulated/trace_text.h"
#include "test_kit/json.h"
#include "veltrano/veltrano.h"

namespace veltrano::testing {
namespace {

using namespace internal;

std::string operationText(std::string_view operation, JSONMembers fields) {
  fields.emplace(fields.begin(), "op", json(operation));
  return jsonObject(fields);
}

}  // namespace

void Recorder::setBeforeAll(bool isBeforeAll) {
  const Lock lock(mutex_);
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
  operationsNow().push_back(operationText("enableLog", {{"on", json(isOn)}}));
}

void Recorder::add(std::string_view operation, const JSONMembers& fields) {
  const Lock lock(mutex_);
  if (hasEnded_) return;
  noteLogSwitch();
  operationsNow().push_back(operationText(operation, fields));
}

void Recorder::addCall(std::string_view operation, const HostMap& arguments, bool hasRunLoop) {
  const Lock lock(mutex_);
  if (hasEnded_) return;
  noteLogSwitch();
  JSONMembers fields;
  for (const auto& [key, value] : arguments) {
    if (key == "completion" || key == "handler") {
      const bool isGiven = *value.member()->getIf<bool>();
      if (isGiven)
        fields.emplace_back(key, json(key + ' ' + std::to_string(++callbacks_)));
      else if (key == "handler")
        fields.emplace_back(key, "null");
    } else if (key != "properties") {
      fields.emplace_back(key, scenarioText(value));
    } else if (operation != "track" || !value.isAbsent()) {
      fields.emplace_back(key, scenarioText(mapIn(value).value_or(HostMap())));
    }
  }
  if (operation == "setUserId" && !hasRunLoop) fields.emplace_back("runLoop", "false");
  operationsNow().push_back(operationText(operation, std::move(fields)));
}

void Recorder::addAnswer(const std::string& path, const Answer& answer) {
  JSONMembers fields{{"path", json(path)}};
  if (answer.isTransportError)
    fields.emplace_back("error", "true");
  else
    fields.emplace_back("status", json(answer.status));
  if (answer.body && !answer.isTransportError) fields.emplace_back("body", json(*answer.body));
  fields.emplace_back("latency", secondsText(answer.latency));
  const std::string step = operationText("network", std::move(fields));
  const Lock lock(mutex_);
  if (std::exchange(answers_[path], step) == step) return;
  // Before the step that caused the post, behind earlier answers of that instant.
  const Duration now = clock_();
  const auto place = std::find_if(steps_.begin(), steps_.end(), [&](const Step& other) {
    return other.at > now || (other.at == now && !other.isAnswer);
  });
  steps_.insert(place, {now, true, {step}, true});
}

void Recorder::end(Duration time) {
  const Lock lock(mutex_);
  noteLogSwitch();
  steps_.push_back({time, true, {operationText("end", {})}, false});
  hasEnded_ = true;
}

void Recorder::addPost(const PostRequest& post) {
  const std::string url = std::string("https://") + kSimulatedCollectionHost + post.path();
  const std::string what = postText(post, url, json(post.httpBody));
  const Lock lock(mutex_);
  posts_ += jsonObject({{"at", secondsText(clock_())}, {"post", what}}) + '\n';
}

std::string Recorder::posts() const {
  const Lock lock(mutex_);
  return posts_;
}

std::string Recorder::scenario(const DeviceFacts& device, const std::optional<HostMap>& info,
                               const std::map<std::string, double>& settings) const {
  JSONMembers configuration{
      {"screen", jsonArray({json(device.screen.width), json(device.screen.height)})},
      {"systemName", json(device.name)},
      {"systemVersion", json(device.version)},
      {"machine", json(device.machineName)}};
  JSONMembers defaults;
  for (const auto& [key, value] : settings) defaults.emplace_back(key, json(value));
  if (!defaults.empty()) configuration.emplace_back("defaults", jsonObject(defaults));
  if (info) configuration.emplace_back("info", scenarioText(*info));
  std::string text = operationText("configure", std::move(configuration)) + '\n';
  const Lock lock(mutex_);
  std::vector<Step> steps = steps_;
  if (!hasEnded_) {
    const Duration end = steps.empty() ? clock_() : std::max(clock_(), steps.back().at);
    // The end joins the open batch, if there is one.
    if (steps.empty() || steps.back().isClosed) steps.push_back({end, false, {}, false});
    steps.back().operations.push_back(operationText("end", {}));
  }
  for (const auto& [at, isClosed, operations, isAnswer] : steps) {
    const std::string operation = operations.size() == 1
                                      ? operations.front()
                                      : operationText("batch", {{"steps", jsonArray(operations)}});
    text += "{\"at\":" + secondsText(at) + ',' + operation.substr(1) + '\n';
  }
  return text;
}

}  // namespace veltrano::testing

#include "tools/replay/scenario.h"

#include <algorithm>
#include <limits>
#include <map>
#include <string>
#include <utility>

#include "tools/replay/step_fields.h"
#include "veltrano/veltrano.h"

namespace replay {
namespace {

using veltrano::internal::SimulatedAnswer;

// Makes an action that never ends the run.
template <class Work>
Action always(Work work) {
  return [work = std::move(work)](Stage& stage) {
    work(stage);
    return true;
  };
}

Action readDevice(const StepFields& fields) {
  DeviceChange change;
  if (fields.has("wifi")) change.isOnWiFi = fields.boolean("wifi");
  if (fields.has("carrier")) change.carrier = fields.stringOrNull("carrier");
  if (fields.has("attStatus"))
    change.trackingStatus = static_cast<std::uint64_t>(
        fields.integer("attStatus", 0, std::numeric_limits<std::int64_t>::max()));
  if (fields.has("advertisingIdentifier"))
    change.advertisingIdentifier = fields.string("advertisingIdentifier");
  return always([change](Stage& stage) { stage.change(change); });
}

Action readApplicationState(const StepFields& fields) {
  using veltrano::internal::ApplicationState;
  static const std::map<std::string, ApplicationState> states = {
      {"active", ApplicationState::active},
      {"inactive", ApplicationState::inactive},
      {"background", ApplicationState::background},
  };
  const auto state = states.find(fields.string("state"));
  if (state == states.end()) throw ScenarioError("unknown \"state\"");
  return always([state = state->second](Stage& stage) { stage.setApplicationState(state); });
}

template <void (Stage::*set)(int)>
Action readOrientation(const StepFields& fields) {
  const auto value = static_cast<int>(
      fields.integer("value", std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
  return always([value](Stage& stage) { (stage.*set)(value); });
}

Action readNotify(const StepFields& fields) {
  return always([name = fields.string("name")](Stage& stage) { stage.postNotification(name); });
}

Action readNetwork(const StepFields& fields) {
  const std::string path = fields.string("path");
  if (path != "/track" && path != "/heartbeat") throw ScenarioError("unknown \"path\"");
  if (fields.has("status") + fields.has("error") + fields.has("nonHTTP") != 1)
    throw ScenarioError("network needs one of \"status\", \"error\" and \"nonHTTP\"");
  SimulatedAnswer answer;
  if (fields.has("status")) {
    answer.status = static_cast<int>(fields.integer("status", 0, 999));
    if (fields.has("body")) answer.body = fields.string("body");
  } else {
    const bool isError = fields.has("error");
    if (!fields.boolean(isError ? "error" : "nonHTTP"))
      throw ScenarioError("\"error\" and \"nonHTTP\" can only be true");
    if (fields.has("body")) throw ScenarioError("a \"body\" comes with a \"status\" only");
    answer.kind = isError ? SimulatedAnswer::Kind::transportError : SimulatedAnswer::Kind::notHTTP;
  }
  if (fields.has("latency")) answer.latency = fields.duration("latency");
  if (answer.latency < answer.latency.zero()) throw ScenarioError("\"latency\" is negative");
  return always([path, answer](Stage& stage) { stage.setAnswer(path, answer); });
}

Action readClockJump(const StepFields& fields) {
  return always(
      [distance = fields.duration("seconds")](Stage& stage) { stage.jumpClock(distance); });
}

Action readEnableLog(const StepFields& fields) {
  return always([on = fields.boolean("on")](Stage&) { Veltrano::isLoggerEnabled = on; });
}

Action readShared(const StepFields&) {
  return always([](Stage&) { Veltrano::shared(); });
}

Action readSetUserId(const StepFields& fields) {
  const bool hasRunLoop = !fields.has("runLoop") || fields.boolean("runLoop");
  return always([id = fields.string("id"), hasRunLoop](Stage& stage) {
    const auto set = [&id] { Veltrano::shared().setUserId(id); };
    if (hasRunLoop) {
      set();
    } else {
      stage.runWithoutRunLoop(set);
    }
  });
}

Action readSetAppId(const StepFields& fields) {
  return always([id = fields.string("id")](Stage&) { Veltrano::shared().setAppId(id); });
}

Action readSetLibVersion(const StepFields& fields) {
  return always(
      [version = fields.string("version")](Stage&) { Veltrano::shared().setLibVersion(version); });
}

Action readSetPublisherUid(const StepFields& fields) {
  return always([uid = fields.stringOrNull("uid")](Stage&) {
    Veltrano::shared().setPublisherUid(uid ? std::optional<std::string_view>(*uid) : std::nullopt);
  });
}

Action readSetIdfa(const StepFields&) {
  return always([](Stage&) { Veltrano::shared().setIdfa(); });
}

Action readTrack(const StepFields& fields) {
  const auto properties = fields.has("properties") ? fields.mapOrNull("properties") : std::nullopt;
  const auto label =
      fields.has("completion") ? std::optional(fields.string("completion")) : std::nullopt;
  return always([name = fields.string("name"), properties, label](Stage& stage) {
    Veltrano::FlushCompletion completion;
    if (label)
      completion = [&trace = stage.trace(), label = *label](bool result) {
        trace.completed(label, result);
      };
    Veltrano::shared().track(name, properties.value_or(veltrano::HostMap()), completion);
  });
}

Action readSetSuperProperties(const StepFields& fields) {
  return always([properties = fields.map("properties")](Stage&) {
    Veltrano::shared().setSuperProperties(properties);
  });
}

Action readRemoveSuperProperty(const StepFields& fields) {
  return always(
      [key = fields.string("key")](Stage&) { Veltrano::shared().removeSuperProperty(key); });
}

Action readSetRefreshTriggers(const StepFields& fields) {
  return always([triggers = fields.stringsOrNull("triggers"),
                 label = fields.stringOrNull("handler")](Stage& stage) {
    std::function<void()> handler;
    if (label) handler = [&trace = stage.trace(), label = *label] { trace.handled(label); };
    Veltrano::shared().setRefreshTriggersWithHandler(triggers, handler);
  });
}

Action readGetScreenOrientation(const StepFields&) {
  return always(
      [](Stage& stage) { stage.trace().answered(Veltrano::shared().getScreenOrientation()); });
}

Action readGetDeviceOrientation(const StepFields&) {
  return always(
      [](Stage& stage) { stage.trace().answered(Veltrano::shared().getDeviceOrientation()); });
}

Action readIsValidNestedType(const StepFields& fields) {
  const veltrano::HostValue value = fields.value("value");
  if (value.member() == nullptr) throw ScenarioError("\"value\" is not one of the twelve types");
  return always(
      [value](Stage& stage) { stage.trace().answered(value.member()->isValidNestedType()); });
}

Action readEnd(const StepFields&) {
  return [](Stage&) { return false; };
}

Action readAction(const StepFields& fields, World world) {
  static const std::map<std::string, Action (*)(const StepFields&)> readers = {
      {"device", readDevice},
      {"applicationState", readApplicationState},
      {"interfaceOrientation", readOrientation<&Stage::setInterfaceOrientation>},
      {"deviceOrientation", readOrientation<&Stage::setDeviceOrientation>},
      {"notify", readNotify},
      {"network", readNetwork},
      {"clockJump", readClockJump},
      {"enableLog", readEnableLog},
      {"shared", readShared},
      {"setUserId", readSetUserId},
      {"setAppId", readSetAppId},
      {"setLibVersion", readSetLibVersion},
      {"setPublisherUid", readSetPublisherUid},
      {"setIdfa", readSetIdfa},
      {"track", readTrack},
      {"setSuperProperties", readSetSuperProperties},
      {"removeSuperProperty", readRemoveSuperProperty},
      {"setRefreshTriggers", readSetRefreshTriggers},
      {"getScreenOrientation", readGetScreenOrientation},
      {"getDeviceOrientation", readGetDeviceOrientation},
      {"isValidNestedType", readIsValidNestedType},
      {"end", readEnd},
  };
  const std::string op = fields.string("op");
  if (op == "configure") throw ScenarioError("configure can only be the first step");
  if (world == World::live && (op == "network" || op == "clockJump"))
    throw ScenarioError(op + " is not possible live");
  const auto reader = readers.find(op);
  if (reader == readers.end()) throw ScenarioError("unknown op: " + op);
  return reader->second(fields);
}

void readLibraryBundle(const StepFields& fields, Configuration& configuration) {
  if (fields.has("resources")) configuration.libraryHasResources = fields.boolean("resources");
  if (fields.has("resourceBundle"))
    configuration.resourceBundle = fields.mapOrNull("resourceBundle");
  if (fields.has("info")) configuration.libraryInfo = fields.mapOrNull("info");
}

Configuration readConfiguration(const StepFields& fields, World world) {
  if (world == World::live)
    for (const char* key : {"startTime", "machine", "libraryBundle", "defaults"})
      if (fields.has(key)) throw ScenarioError('"' + std::string(key) + "\" is not possible live");
  Configuration configuration;
  if (fields.has("startTime")) configuration.startTime = fields.duration("startTime");
  if (fields.has("screen")) {
    const auto sides = fields.numbers("screen", 2);
    configuration.screen = {sides[0], sides[1]};
  }
  if (fields.has("systemName")) configuration.systemName = fields.string("systemName");
  if (fields.has("systemVersion")) configuration.systemVersion = fields.string("systemVersion");
  if (fields.has("machine")) configuration.machine = fields.string("machine");
  if (fields.has("info")) configuration.info = fields.mapOrNull("info");
  if (fields.has("libraryBundle")) readLibraryBundle(fields.object("libraryBundle"), configuration);
  if (fields.has("defaults")) {
    const StepFields defaults = fields.object("defaults");
    for (const std::string& key : defaults.keys())
      configuration.defaults[key] = defaults.number(key);
  }
  return configuration;
}

// The steps of a batch in order, with nested batches expanded; any other step by itself. Does not
// recurse.
std::vector<StepFields> flattened(const StepFields& step) {
  std::vector<StepFields> steps;
  std::vector<StepFields> waiting{step};  // the next one last
  while (!waiting.empty()) {
    const StepFields next = waiting.back();
    waiting.pop_back();
    if (next.string("op") != "batch") {
      steps.push_back(next);
      continue;
    }
    const auto inner = next.objects("steps");
    for (const StepFields& it : inner)
      if (it.has("at")) throw ScenarioError("a step in a batch has no \"at\"");
    waiting.insert(waiting.end(), inner.rbegin(), inner.rend());
  }
  return steps;
}

// Parses one line and adds its step to the scenario.
void readStep(const std::string& line, World world, bool isFirst, Scenario& scenario) {
  const JsonText json(line);
  const StepFields fields(json, json.root());
  Step step;
  if (fields.has("at")) step.at = fields.duration("at");
  if (step.at < veltrano::internal::Duration::zero()) throw ScenarioError("\"at\" is negative");
  if (!scenario.steps.empty() && step.at < scenario.steps.back().at)
    throw ScenarioError("\"at\" is decreasing");
  if (isFirst && fields.string("op") == "configure") {
    scenario.configuration = readConfiguration(fields, world);
    step.action = always([](Stage&) {});
  } else {
    std::vector<Action> actions;
    for (const StepFields& it : flattened(fields)) {
      actions.push_back(readAction(it, world));
      scenario.hasEnd = scenario.hasEnd || it.string("op") == "end";
    }
    step.action = [actions = std::move(actions)](Stage& stage) {
      return std::all_of(actions.begin(), actions.end(),
                         [&](const Action& action) { return action(stage); });
    };
  }
  scenario.steps.push_back(std::move(step));
}

}  // namespace

Scenario readScenario(std::istream& lines, World world) {
  Scenario scenario;
  std::string line;
  int number = 1;
  for (; std::getline(lines, line); ++number) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    try {
      readStep(line, world, scenario.steps.empty(), scenario);
    } catch (const ScenarioError& error) {
      throw ScenarioError("line " + std::to_string(number) + ": " + error.what());
    }
  }
  if (world == World::live && !scenario.hasEnd)
    throw ScenarioError("line " + std::to_string(number - 1) +
                        ": a live scenario needs an end, and the last line is reached");
  return scenario;
}

}  // namespace replay

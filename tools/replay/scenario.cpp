#include "tools/replay/scenario.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>

#include "encoding/json_text.h"
#include "platform/endpoint_path.h"
#include "platform/simulated/trace_text.h"
#include "tools/replay/fields.h"
#include "veltrano/veltrano.h"

namespace replay {
namespace {

using namespace veltrano::internal;

Action readDevice(const Fields& fields) {
  const auto isOnWiFi = fields.getIfThere<bool>("wifi");
  const auto carrier = fields.getIfThere<std::optional<std::string>>("carrier");
  const auto trackingStatus = fields.getIfThere<std::uint64_t>("attStatus");
  const auto identifier = fields.getIfThere<std::string>("advertisingIdentifier");
  return [=](Environment& environment) {
    environment.change([&](DeviceFacts& facts) {
      facts.isOnWiFi = isOnWiFi.value_or(facts.isOnWiFi);
      facts.carrier = carrier.value_or(facts.carrier);
      facts.trackingStatus = trackingStatus.value_or(facts.trackingStatus);
      facts.identifier = identifier.value_or(facts.identifier);
    });
  };
}

// Sets one of the device's facts.
template <class Fact>
Action sets(Fact DeviceFacts::*fact, Fact value) {
  return [=](Environment& environment) {
    environment.change([&](DeviceFacts& facts) { facts.*fact = value; });
  };
}

Action readApplicationState(const Fields& fields) {
  const auto name = fields.get<std::string>("state");
  const auto* const end = std::end(kApplicationStates);
  const auto* const found = std::find(std::begin(kApplicationStates), end, name);
  if (found == end) throw ScenarioError("unknown \"state\"");
  const auto state = static_cast<ApplicationState>(found - std::begin(kApplicationStates));
  return sets(&DeviceFacts::applicationState, state);
}

Action readNetwork(const Fields& fields) {
  const auto path = fields.get<std::string>("path");
  if (!endpointPath(path)) throw ScenarioError("unknown \"path\"");
  if (fields.has("status") + fields.has("error") + fields.has("nonHTTP") != 1)
    throw ScenarioError("network needs one of \"status\", \"error\" and \"nonHTTP\"");
  SimulatedAnswer answer;
  if (fields.has("status")) {
    answer.status = fields.get<int>("status");
    if (answer.status < 0 || answer.status > 999) throw ScenarioError("unknown \"status\"");
    fields.update("body", answer.body);
  } else {
    const bool isError = fields.has("error");
    if (!fields.get<bool>(isError ? "error" : "nonHTTP"))
      throw ScenarioError("\"error\" and \"nonHTTP\" can only be true");
    if (fields.has("body")) throw ScenarioError("a \"body\" comes with a \"status\" only");
    answer.form = isError ? SimulatedAnswer::Form::transportError : SimulatedAnswer::Form::notHTTP;
  }
  fields.update("latency", answer.latency);
  if (answer.latency < answer.latency.zero()) throw ScenarioError("\"latency\" is negative");
  return [path, answer](Environment& environment) { environment.setAnswer(path, answer); };
}

Action readSetUserId(const Fields& fields) {
  const bool hasRunLoop = fields.getIfThere<bool>("runLoop").value_or(true);
  return [id = fields.get<std::string>("id"), hasRunLoop](Environment& environment) {
    const auto set = [&id] { Veltrano::shared().setUserId(id); };
    if (hasRunLoop)
      set();
    else
      environment.runWithoutRunLoop(set);
  };
}

Action readTrack(const Fields& fields) {
  std::optional<veltrano::HostMap> properties;
  fields.update("properties", properties);
  return [name = fields.get<std::string>("name"), properties,
          label = fields.getIfThere<std::string>("completion")](Environment& environment) {
    Veltrano::FlushCompletion completion;
    if (label)
      completion = [&trace = environment.trace(), label = *label](bool result) {
        trace.add("completion", json(label), ",\"result\":" + json(result));
      };
    Veltrano::shared().track(name, properties.value_or(veltrano::HostMap()), completion);
  };
}

Action readSetRefreshTriggers(const Fields& fields) {
  return [triggers = fields.get<std::optional<std::vector<std::string>>>("triggers"),
          label = fields.get<std::optional<std::string>>("handler")](Environment& environment) {
    std::function<void()> handler;
    if (label)
      handler = [&trace = environment.trace(), label = *label] {
        trace.add("handler", json(label));
      };
    Veltrano::shared().setRefreshTriggersWithHandler(triggers, handler);
  };
}

Action readIsValidNestedType(const Fields& fields) {
  const auto value = fields.get<veltrano::HostValue>("value");
  if (value.member() == nullptr) throw ScenarioError("\"value\" is not one of the twelve types");
  return [value](Environment& environment) {
    environment.trace().add("value", json(value.member()->isValidNestedType()));
  };
}

using Reader = std::function<Action(const Fields&)>;

// Calls `function` with the environment and the field `key`.
template <class Argument, class Function>
Reader with(const char* key, Function function) {
  return [=](const Fields& fields) {
    return [function, argument = fields.get<Argument>(key)](Environment& environment) {
      std::invoke(function, environment, argument);
    };
  };
}

// Calls an operation of the tracker with the field `key`.
template <class Argument, class Operation>
Reader trackerCall(const char* key, Operation operation) {
  return with<Argument>(key, [operation](Environment&, const Argument& argument) {
    (Veltrano::shared().*operation)(argument);
  });
}

// Does the same each time.
Reader always(const Action& action) {
  return [action](const Fields&) { return action; };
}

Reader orientation(int DeviceFacts::*fact) {
  return [fact](const Fields& fields) { return sets(fact, fields.get<int>("value")); };
}

Action readAction(const Fields& step, Mode mode) {
  using std::string;
  static const std::map<string, Reader> readers = {
      {"device", readDevice},
      {"applicationState", readApplicationState},
      {"interfaceOrientation", orientation(&DeviceFacts::screenOrientation)},
      {"deviceOrientation", orientation(&DeviceFacts::deviceOrientation)},
      {"notify", with<string>("name", &Environment::postNotification)},
      {"network", readNetwork},
      {"clockJump", with<Duration>("seconds", &Environment::jumpClock)},
      {"enableLog", with<bool>("on", [](auto&, bool isOn) { Veltrano::isLoggerEnabled = isOn; })},
      {"shared", always([](Environment&) { Veltrano::shared(); })},
      {"setUserId", readSetUserId},
      {"setAppId", trackerCall<string>("id", &Veltrano::setAppId)},
      {"setLibVersion", trackerCall<string>("version", &Veltrano::setLibVersion)},
      {"setPublisherUid",
       with<std::optional<string>>(
           "uid", [](auto&, auto& uid) { Veltrano::shared().setPublisherUid(uid); })},
      {"setIdfa", always([](Environment&) { Veltrano::shared().setIdfa(); })},
      {"track", readTrack},
      {"setSuperProperties",
       trackerCall<veltrano::HostMap>("properties", &Veltrano::setSuperProperties)},
      {"removeSuperProperty", trackerCall<string>("key", &Veltrano::removeSuperProperty)},
      {"setRefreshTriggers", readSetRefreshTriggers},
      {"setCollecting", trackerCall<bool>("on", &Veltrano::setCollecting)},
      {"getScreenOrientation", always([](Environment& environment) {
         environment.trace().add("value", json(Veltrano::shared().getScreenOrientation()));
       })},
      {"getDeviceOrientation", always([](Environment& environment) {
         environment.trace().add("value", json(Veltrano::shared().getDeviceOrientation()));
       })},
      {"isValidNestedType", readIsValidNestedType},
      {"end", always([](Environment&) {})},
  };
  const auto op = step.get<string>("op");
  if (op == "configure") throw ScenarioError("configure can only be the first step");
  if (mode == Mode::live && (op == "network" || op == "clockJump"))
    throw ScenarioError(op + " is not possible live");
  const auto reader = readers.find(op);
  if (reader == readers.end()) throw ScenarioError("unknown op: " + op);
  return reader->second(step);
}

Configuration readConfiguration(const Fields& fields, Mode mode) {
  if (mode == Mode::live)
    for (const char* key : {"startTime", "machine", "libraryBundle", "defaults"})
      if (fields.has(key)) throw ScenarioError('"' + std::string(key) + "\" is not possible live");
  Configuration configuration;
  fields.update("startTime", configuration.startTime);
  if (const auto sides = fields.getIfThere<std::vector<double>>("screen")) {
    if (sides->size() != 2) throw ScenarioError("\"screen\" is not a width and a height");
    configuration.device.screen = {sides->front(), sides->back()};
  }
  fields.update("systemName", configuration.device.name);
  fields.update("systemVersion", configuration.device.version);
  fields.update("machine", configuration.device.machineName);
  fields.update("info", configuration.bundles.mainInfo);
  fields.update("defaults", configuration.defaults);
  if (!fields.has("libraryBundle")) return configuration;
  const Fields bundle(fields.json("libraryBundle"));
  bundle.update("resources", configuration.bundles.libraryHasResources);
  bundle.update("resourceBundle", configuration.bundles.resourceBundleInfo);
  bundle.update("info", configuration.bundles.libraryInfo);
  return configuration;
}

// Adds the actions of a step, which is perhaps a batch. Does not recurse.
void readActions(const Fields& fields, Mode mode, Step& step) {
  std::vector<Fields> waiting{fields};  // the next one last
  while (!waiting.empty()) {
    const Fields next = waiting.back();
    waiting.pop_back();
    if (next.get<std::string>("op") == "batch") {
      const JSONValue& steps = next.json("steps");
      if (!steps.IsArray()) throw ScenarioError("\"steps\" must be a list");
      for (const JSONValue* inner = steps.End(); inner != steps.Begin();) {
        waiting.emplace_back(*--inner);
        if (waiting.back().has("at")) throw ScenarioError("a step in a batch has no \"at\"");
      }
      continue;
    }
    Action action = readAction(next, mode);
    if (!step.isEnd) step.actions.push_back(std::move(action));
    step.isEnd = step.isEnd || next.get<std::string>("op") == "end";
  }
}

// Parses one line and adds its step to the scenario.
void readStep(const std::string& line, Mode mode, Scenario& scenario) {
  const JSONText json(line);
  const Fields fields(json.root());
  Step step;
  fields.update("at", step.at);
  if (step.at < step.at.zero()) throw ScenarioError("\"at\" is negative");
  if (!scenario.steps.empty() && step.at < scenario.steps.back().at)
    throw ScenarioError("\"at\" is decreasing");
  if (scenario.steps.empty() && fields.get<std::string>("op") == "configure")
    scenario.configuration = readConfiguration(fields, mode);
  else
    readActions(fields, mode, step);
  scenario.steps.push_back(std::move(step));
}

}  // namespace

Scenario readScenario(std::istream& lines, Mode mode) {
  Scenario scenario;
  std::string line;
  int number = 1;
  for (; std::getline(lines, line); ++number) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    try {
      readStep(line, mode, scenario);
    } catch (const ScenarioError& error) {
      throw ScenarioError("line " + std::to_string(number) + ": " + error.what());
    }
  }
  if (lines.bad()) throw ScenarioError("the scenario cannot be read");
  const bool hasEnd = std::any_of(scenario.steps.begin(), scenario.steps.end(),
                                  [](const Step& step) { return step.isEnd; });
  if (mode == Mode::live && !hasEnd)
    throw ScenarioError("line " + std::to_string(number - 1) +
                        ": a live scenario needs an end, and the last line is reached");
  return scenario;
}

}  // namespace replay

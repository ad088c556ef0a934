#include "tools/replay/live_run.h"

#include <unistd.h>

#include <chrono>
#include <optional>
#include <thread>
#include <utility>

#include "encoding/json_text.h"
#include "platform/posix/posix_services.h"
#include "platform/posix/threads/due_time.h"
#include "tools/temporary_directory.h"
#include "tracker/library.h"

namespace replay {

using namespace veltrano::internal;

namespace {

using SteadyClock = std::chrono::steady_clock;

// Traces each post and forwards it.
class TracingURLSession final : public ZKURLSessionManager {
 public:
  TracingURLSession(Trace& trace, ZKURLSessionManager& session)
      : trace_(trace), session_(session) {}

  void postData(PostRequest request, URLSessionCallback callback) override {
    trace_.addPost(request);
    session_.postData(std::move(request), std::move(callback));
  }

 private:
  Trace& trace_;
  ZKURLSessionManager& session_;
};

// Traces each write and forwards it.
class TracingDefaults final : public UserDefaults {
 public:
  TracingDefaults(Trace& trace, UserDefaults& defaults) : trace_(trace), defaults_(defaults) {}

  double doubleForKey(std::string_view key) const override { return defaults_.doubleForKey(key); }
  bool isStored(double value, std::string_view key) const override {
    return defaults_.isStored(value, key);
  }
  void setDouble(double value, std::string_view key) override {
    trace_.addDefault(std::string(key), value);
    defaults_.setDouble(value, key);
  }

 private:
  Trace& trace_;
  UserDefaults& defaults_;
};

veltrano::PosixOptions posixOptions(const Configuration& configuration, const LiveOptions& options,
                                    Trace& trace) {
  veltrano::PosixOptions posix;
  posix.collectionHost = options.collectionHost;
  posix.userDefaultsFile = options.userDefaultsFile;
  posix.infoDictionary = configuration.bundles.mainInfo;
  posix.certificateAuthorities = options.certificateAuthorities;
  if (!options.token.empty()) posix.sessionToken = [token = options.token] { return token; };
  posix.logSink = [&trace](std::string_view line) { trace.add("log", json(line)); };
  posix.systemName = configuration.device.name;
  posix.systemVersion = configuration.device.version;
  posix.screenWidth = configuration.device.screen.width;
  posix.screenHeight = configuration.device.screen.height;
  posix.interfaceOrientation = 1;
  return posix;
}

class LiveEnvironment final : public Environment {
 public:
  LiveEnvironment(const Configuration& configuration, const LiveOptions& options,
                  const Trace::Write& write, Bodies bodies)
      : trace_([this] { return now(); }, write, bodies),
        posix_(posixOptions(configuration, options, trace_)) {}

  Platform services() {
    device_.set(&DeviceFacts::isOnWiFi, false);  // until a step says otherwise
    Platform platform = posix_.platform();
    platform.userDefaults = &defaults_;
    // As the scenario says.
    platform.application = &device_;
    platform.device = &device_;
    platform.telephony = &device_;
    platform.trackingManager = &device_;
    platform.identifierManager = &device_;
    platform.connectivity = &device_;
    platform.momentaryFacts = nullptr;
    platform.urlSession = &session_;
    return platform;
  }

  SteadyClock::time_point start() const { return start_; }

  Trace& trace() override { return trace_; }

  void change(const DeviceChange& change) override { device_.change(change); }
  void postNotification(const std::string& name) override { posix_.notificationCenter.post(name); }

  // Live scenarios have no such steps.
  void setAnswer(const std::string&, const SimulatedAnswer&) override {}
  void jumpClock(Duration) override {}

  void runWithoutRunLoop(const std::function<void()>& action) override {
    std::thread(action).join();
  }

 private:
  Duration now() const { return std::chrono::duration_cast<Duration>(SteadyClock::now() - start_); }

  const SteadyClock::time_point start_ = SteadyClock::now();
  Trace trace_;
  PosixServices posix_;
  TracingDefaults defaults_{trace_, posix_.userDefaults};
  ReportedDevice device_{posix_.reports.facts()};
  TracingURLSession session_{trace_, posix_.urlSession};
};

}  // namespace

void runLive(const Scenario& scenario, const LiveOptions& options, const Trace::Write& write,
             Bodies bodies) {
  LiveOptions complete = options;
  std::optional<tools::TemporaryDirectory> temporary;
  if (complete.userDefaultsFile.empty())
    complete.userDefaultsFile = temporary.emplace("veltrano-replay").path() / "settings";

  // Never destroyed: the library's threads use it until the process ends.
  auto& environment = *new LiveEnvironment(scenario.configuration, complete, write, bodies);
  bool shouldContinue = Library::install(environment.services());
  auto& loop = veltrano::RunLoop::current();
  for (const Step& step : scenario.steps) {
    if (!shouldContinue) break;
    loop.runUntil(dueTime(environment.start(), step.at));
    for (const Action& action : step.actions) action(environment);
    shouldContinue = !step.isEnd;
  }
  temporary.reset();
  environment.trace().close();
  _exit(0);
}

}  // namespace replay

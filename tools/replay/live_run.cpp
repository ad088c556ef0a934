#include "tools/replay/live_run.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <utility>

#include "platform/platform.h"
#include "platform/posix/device/clock_and_random.h"
#include "platform/posix/device/host_reports.h"
#include "platform/posix/device/standard_output.h"
#include "platform/posix/http/authentication.h"
#include "platform/posix/http/url_session.h"
#include "platform/posix/storage/bundles.h"
#include "platform/posix/storage/user_defaults.h"
#include "platform/posix/threads/due_time.h"
#include "platform/posix/threads/fork.h"
#include "platform/posix/threads/notification_center.h"
#include "platform/posix/threads/run_loop.h"
#include "platform/posix/threads/work_queue.h"

namespace replay {
namespace {

using SteadyClock = std::chrono::steady_clock;

// Traces each post and hands it on.
class TracingURLSession final : public veltrano::ZKURLSessionManager {
 public:
  TracingURLSession(Trace& trace, veltrano::ZKURLSessionManager& session)
      : trace_(trace), session_(session) {}

  void postData(veltrano::PostRequest request, veltrano::URLSessionCallback callback) override {
    trace_.posted(request);
    session_.postData(std::move(request), std::move(callback));
  }

 private:
  Trace& trace_;
  veltrano::ZKURLSessionManager& session_;
};

// Traces each writing and hands it on.
class TracingDefaults final : public veltrano::UserDefaults {
 public:
  TracingDefaults(Trace& trace, veltrano::UserDefaults& defaults)
      : trace_(trace), defaults_(defaults) {}

  double doubleForKey(std::string_view key) const override { return defaults_.doubleForKey(key); }
  bool isStored(double value, std::string_view key) const override {
    return defaults_.isStored(value, key);
  }
  void setDouble(double value, std::string_view key) override {
    trace_.wroteDefaults(std::string(key), value);
    defaults_.setDouble(value, key);
  }

 private:
  Trace& trace_;
  veltrano::UserDefaults& defaults_;
};

// Wi-Fi as the scenario says, not as the machine has it.
class ScriptedConnectivity final : public veltrano::ZKConnectivityManager {
 public:
  bool isReachableOnWiFi() const override { return isOnWiFi; }

  std::atomic<bool> isOnWiFi{false};
};

std::function<std::optional<std::string>()> tokenFunction(const std::string& token) {
  return [token]() -> std::optional<std::string> {
    return token.empty() ? std::nullopt : std::optional(token);
  };
}

class LiveStage final : public Stage {
 public:
  LiveStage(const Configuration& configuration, const LiveOptions& options, Bodies bodies)
      : trace_([this] { return now(); }, writeLine, bodies),
        collectionHost_(options.collectionHost),
        output_([this](std::string_view line) { trace_.logged(line); }),
        storedDefaults_(options.userDefaultsFile),
        bundles_(configuration.info),
        device_(configuration.systemName, configuration.systemVersion),
        network_({.certificateAuthorities = options.certificateAuthorities}),
        tokens_(tokenFunction(options.token)) {
    device_.setMainScreenSize(configuration.screen);
  }

  veltrano::Platform services() {
    return {
        .collectionHost = collectionHost_,
        .wallClock = clock_,
        .standardOutput = output_,
        .dispatch = dispatch_,
        .timers = timers_,
        .notificationCenter = notificationCenter_,
        .userDefaults = defaults_,
        .randomSource = randomSource_,
        .bundles = bundles_,
        .application = application_,
        .device = device_,
        .telephony = telephony_,
        .trackingManager = tracking_,
        .identifierManager = identifiers_,
        .connectivity = connectivity_,
        .urlSession = session_,
        .sessionTokenProvider = tokens_,
        .userSessionManager = auth_,
    };
  }

  SteadyClock::time_point start() const { return start_; }

  Trace& trace() override { return trace_; }

  void change(const DeviceChange& change) override {
    if (change.isOnWiFi) connectivity_.isOnWiFi = *change.isOnWiFi;
    if (change.carrier) telephony_.setCarrierName(*change.carrier);
    if (change.trackingStatus) tracking_.setTrackingAuthorizationStatus(*change.trackingStatus);
    if (change.advertisingIdentifier)
      identifiers_.setAdvertisingIdentifier(change.advertisingIdentifier);
  }

  void setApplicationState(veltrano::ApplicationState state) override {
    application_.setState(state);
  }
  void setInterfaceOrientation(int value) override { application_.setInterfaceOrientation(value); }
  void setDeviceOrientation(int value) override { device_.setOrientation(value); }
  void postNotification(const std::string& name) override { notificationCenter_.post(name); }

  // A live scenario has no such steps.
  void setAnswer(const std::string&, const veltrano::SimulatedAnswer&) override {}
  void jumpClock(veltrano::Duration) override {}

  void runWithoutRunLoop(const std::function<void()>& action) override {
    std::thread(action).join();
  }

 private:
  static void writeLine(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
  }

  veltrano::Duration now() const {
    return std::chrono::duration_cast<veltrano::Duration>(SteadyClock::now() - start_);
  }

  const SteadyClock::time_point start_ = SteadyClock::now();
  Trace trace_;
  const std::string collectionHost_;
  veltrano::PosixClock clock_;
  veltrano::PosixStandardOutput output_;
  veltrano::PosixDispatch dispatch_;
  veltrano::PosixTimers timers_;
  veltrano::PosixNotificationCenter notificationCenter_;
  veltrano::PosixUserDefaults storedDefaults_;
  TracingDefaults defaults_{trace_, storedDefaults_};
  veltrano::PosixRandomSource randomSource_;
  veltrano::PosixBundles bundles_;
  veltrano::PosixApplication application_{veltrano::ApplicationState::active, 1};
  veltrano::PosixDevice device_;
  veltrano::PosixTelephony telephony_;
  veltrano::PosixTracking tracking_;
  veltrano::PosixIdentifiers identifiers_;
  ScriptedConnectivity connectivity_;
  veltrano::PosixURLSession network_;
  TracingURLSession session_{trace_, network_};
  veltrano::ZKAuthTokenRepository tokens_;
  veltrano::ZKAuth auth_;
};

// A directory of this run's own; empty when there can be none.
std::filesystem::path makeTemporaryDirectory() {
  std::string name = std::filesystem::temp_directory_path() / "veltrano-replay-XXXXXX";
  return mkdtemp(name.data()) != nullptr ? std::filesystem::path(name) : std::filesystem::path();
}

}  // namespace

void runLive(const Scenario& scenario, const LiveOptions& options, Bodies bodies) {
  LiveOptions complete = options;
  std::filesystem::path temporary;
  if (complete.userDefaultsFile.empty()) {
    temporary = makeTemporaryDirectory();
    if (!temporary.empty()) complete.userDefaultsFile = temporary / "defaults.plist";
  }

  veltrano::watchForks();
  // Never destroyed: the library's threads use it until the process ends.
  auto& stage = *new LiveStage(scenario.configuration, complete, bodies);
  bool goesOn = veltrano::installPlatform(stage.services());
  auto& loop = veltrano::RunLoop::current();
  for (const Step& step : scenario.steps) {
    if (!goesOn) break;
    loop.runUntil(veltrano::dueTime(stage.start(), step.at));
    goesOn = step.action(stage);
  }
  if (!temporary.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(temporary, ignored);
  }
  stage.trace().close();
  _exit(0);
}

}  // namespace replay

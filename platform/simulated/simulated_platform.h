// A platform in virtual time: one timeline, no thread, no sleeping. Tests set inputs through
// members and observe effects through hooks.
//
// Other threads of a host may use the clock, the work queue, the notifications, the timers and the
// device. Everything else belongs to the timeline's thread.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>

#include "platform/platform.h"
#include "platform/reported_device.h"
#include "platform/simulated/simulated_work_queue.h"
#include "platform/simulated/timeline.h"

namespace veltrano::internal {

/// The collection host in scenarios and their traces.
inline constexpr const char* kSimulatedCollectionHost = "collect.veltrano.example";

struct SimulatedClock final : WallClock {
  explicit SimulatedClock(const Timeline& line) : timeline(line) {}
  WallTime now() const override { return {start + timeline.now() + jumped.load()}; }
  Duration elapsed() const override { return timeline.now(); }
  std::chrono::seconds localTimeOffset(WallTime) const override { return {}; }

  /// Moves the clock forward or back.
  void jump(Duration distance);

  const Timeline& timeline;
  Duration start = std::chrono::seconds(1'700'000'000);  // the wall clock at the start
  std::atomic<Duration> jumped{Duration(0)};             // how far it has been set since
};

struct SimulatedOutput final : StandardOutput {
  void writeLine(std::string_view line) override { onLine(line); }

  std::function<void(std::string_view)> onLine = [](std::string_view) {};
};

struct SimulatedTimers final : Timers {
  explicit SimulatedTimers(Timeline& line) : timeline(line) {}
  std::shared_ptr<Timer> schedule(Duration delay, Duration tolerance,
                                  std::function<void()> action) override;
  void performOnMainThread(std::function<void()> function) override {
    onMainThread(std::move(function));
  }

  Timeline& timeline;
  bool threadRunsRunLoop = true;  // whether timers scheduled from now on ever fire
  bool keepsTolerance = false;    // as in production: one fires at most once per tolerance

  /// Runs what is due on the main thread's run loop: timers, and functions.
  std::function<void(std::function<void()>)> onRunLoop = [](const auto& action) { action(); };
  std::function<void(std::function<void()>)> onMainThread = [](const auto& function) {
    function();
  };

  /// Called for each timer that another thread schedules: it never fires.
  std::function<void()> onLostTimer = [] {};
};

struct SimulatedNotificationCenter final : LocalNotificationCenter {
  void addObserver(std::string_view name, std::function<void()> observer) override {
    if (!isUsed.exchange(true)) onFirstUse();
    LocalNotificationCenter::addObserver(name, std::move(observer));
  }

  std::atomic<bool> isUsed{false};

  /// Called before the first observer is added, which is when the library is first used.
  std::function<void()> onFirstUse = [] {};
};

struct SimulatedDefaults final : UserDefaults {
  double doubleForKey(std::string_view key) const override;
  void setDouble(double value, std::string_view key) override;

  std::map<std::string, double, std::less<>> values;
  std::function<void(const std::string& key, double value)> onWrite = [](const auto&, double) {};
};

/// The same bytes in every run.
struct SimulatedRandomSource final : RandomSource {
  RandomBytes bytes() override;

  std::mt19937 generator;
};

struct SimulatedBundles final : Bundles {
  std::optional<HostMap> mainInfoDictionary() const override { return mainInfo; }
  Bundle libraryBundle() const override;
  std::optional<Bundle> bundleAtPath(std::string_view path) const override;

  std::optional<HostMap> mainInfo;
  std::optional<HostMap> libraryInfo;
  bool libraryHasResources = true;
  std::optional<HostMap> resourceBundleInfo =
      HostMap{{"CFBundleShortVersionString", "1.0.0"}};  // none: there is no resource bundle
};

class SimulatedDevice final : public ReportedDevice {
 public:
  static DeviceFacts phoneInPortrait() {
    return {.screen = {390, 844},
            .name = "iOS",
            .version = "17.0",
            .machineName = "iPhone15,2",
            .screenOrientation = 1};
  }

  SimulatedDevice() : ReportedDevice(phoneInPortrait()) {}
};

/// How posts to one path are answered.
struct SimulatedAnswer {
  enum class Form { http, transportError, notHTTP };

  Form form = Form::http;
  int status = 200;
  std::optional<std::string> body = std::nullopt;
  Duration latency = std::chrono::milliseconds(50);
};

/// A scripted network. It chooses the answer when a request is posted.
struct SimulatedURLSession final : ZKURLSessionManager {
  explicit SimulatedURLSession(Timeline& line) : timeline(line) {}
  void postData(PostRequest request, URLSessionCallback callback) override;

  Timeline& timeline;
  std::map<std::string, SimulatedAnswer> answers;  // by the path of the URL
  std::function<void(const PostRequest&)> onPost = [](const PostRequest&) {};
};

class SimulatedPlatform {
  const std::shared_ptr<Timeline> timeline_;

 public:
  SimulatedPlatform() : SimulatedPlatform(std::make_shared<Timeline>()) {}

  /// Shares `line` with other platforms.
  explicit SimulatedPlatform(std::shared_ptr<Timeline> line);

  /// These services, for one library.
  Platform services();

  Timeline& timeline = *timeline_;
  SimulatedClock clock{timeline};
  SimulatedOutput output;
  SimulatedWorkQueue workQueue{timeline};
  SimulatedTimers timers{timeline};
  SimulatedNotificationCenter notificationCenter;
  SimulatedDefaults defaults;
  SimulatedRandomSource randomSource;
  SimulatedBundles bundles;
  SimulatedDevice device;
  SimulatedURLSession network{timeline};
};

}  // namespace veltrano::internal

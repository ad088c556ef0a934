// A platform in virtual time: one timeline, no thread, no sleeping. Tests set inputs through
// members and observe effects through hooks.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/simulated/simulated_url_session.h"
#include "platform/simulated/simulated_work_queue.h"
#include "platform/simulated/timeline.h"

namespace veltrano::internal {

/// The collection host in scenarios and their traces.
inline constexpr const char* kSimulatedCollectionHost = "collect.veltrano.example";

struct SimulatedClock final : WallClock {
  explicit SimulatedClock(const Timeline& line) : timeline(line) {}
  WallTime now() const override { return {start + timeline.now() + jumped}; }
  Duration elapsed() const override { return timeline.now(); }
  std::chrono::seconds localTimeOffset(WallTime) const override { return {}; }

  /// Moves the clock forward or back.
  void jump(Duration distance);

  const Timeline& timeline;
  Duration start = std::chrono::seconds(1'700'000'000);  // the wall clock at the start
  Duration jumped{0};                                    // how far it has been set since
};

struct SimulatedOutput final : StandardOutput {
  void writeLine(std::string_view line) override { onLine(line); }

  std::function<void(std::string_view)> onLine = [](std::string_view) {};
};

struct SimulatedTimers final : Timers {
  explicit SimulatedTimers(Timeline& line) : timeline(line) {}
  std::shared_ptr<Timer> schedule(Duration delay, Duration tolerance,
                                  std::function<void()> action) override;

  Timeline& timeline;
  bool threadRunsRunLoop = true;  // whether timers scheduled from now on ever fire
};

struct SimulatedNotificationCenter final : NotificationCenter {
  void addObserver(std::string_view name, std::function<void()> observer) override;
  void post(const std::string& name) const;

  std::map<std::string, std::vector<std::function<void()>>> observers;
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

/// Everything that the device answers by itself.
struct SimulatedDevice final : Device,
                               Application,
                               CTTelephonyNetworkInfo,
                               ATTrackingManager,
                               ASIdentifierManager,
                               ZKConnectivityManager {
  ScreenSize mainScreenSize() const override { return screen; }
  std::string systemName() const override { return name; }
  std::string systemVersion() const override { return version; }
  std::string machine() const override { return machineName; }
  int orientation() const override { return deviceOrientation; }
  ApplicationState state() const override { return applicationState; }
  int interfaceOrientation() const override { return screenOrientation; }
  std::optional<std::string> carrierName() const override { return carrier; }
  std::uint64_t trackingAuthorizationStatus() const override { return trackingStatus; }
  std::string advertisingIdentifier() const override { return identifier; }
  bool isReachableOnWiFi() const override { return isOnWiFi; }

  ScreenSize screen{390, 844};
  std::string name = "iOS";
  std::string version = "17.0";
  std::string machineName = "iPhone15,2";
  int deviceOrientation = 0;
  int screenOrientation = 1;
  ApplicationState applicationState = ApplicationState::active;
  std::optional<std::string> carrier;
  std::uint64_t trackingStatus = 0;
  std::string identifier = ASIdentifierManager::advertisingIdentifier();
  bool isOnWiFi = false;
};

class SimulatedPlatform {
  const std::shared_ptr<Timeline> timeline_;

 public:
  SimulatedPlatform() : SimulatedPlatform(std::make_shared<Timeline>()) {}

  /// Shares `line` with other platforms.
  explicit SimulatedPlatform(std::shared_ptr<Timeline> line);
  SimulatedPlatform(const SimulatedPlatform&) = delete;
  SimulatedPlatform& operator=(const SimulatedPlatform&) = delete;

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

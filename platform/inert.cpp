#include "platform/inert.h"

namespace veltrano {
namespace {

struct InertClock final : WallClock {
  WallTime now() const override { return {}; }
  std::chrono::seconds localTimeOffset(WallTime) const override { return {}; }
};

struct InertOutput final : StandardOutput {
  void writeLine(std::string_view) override {}
};

struct InertQueue final : WorkQueue {
  void async(std::unique_ptr<Block>) override {}
  void asyncAfter(Duration, std::shared_ptr<WorkItem>) override {}
  void wait(std::shared_ptr<DispatchGroup>, std::function<void()>) override {}
};

struct InertDispatch final : Dispatch {
  WorkQueue& makeSerialQueue(std::string_view) override { return queue; }
  InertQueue queue;
};

struct InertTimer final : Timer {
  void invalidate() override {}
};

struct InertTimers final : Timers {
  std::shared_ptr<Timer> schedule(Duration, Duration, std::function<void()>) override {
    return std::make_shared<InertTimer>();
  }
};

struct InertNotificationCenter final : NotificationCenter {
  void addObserver(std::string_view, std::function<void()>) override {}
};

struct InertDefaults final : UserDefaults {
  double doubleForKey(std::string_view) const override { return 0; }
  void setDouble(double, std::string_view) override {}
};

struct InertRandomSource final : RandomSource {
  RandomBytes bytes() override { return {}; }
};

struct InertBundles final : Bundles {
  std::optional<HostMap> mainInfoDictionary() const override { return std::nullopt; }
  Bundle libraryBundle() const override { return {}; }
  std::optional<Bundle> bundleAtPath(std::string_view) const override { return std::nullopt; }
};

struct InertDevice final : Device {
  ScreenSize mainScreenSize() const override { return {}; }
  std::string systemName() const override { return {}; }
  std::string systemVersion() const override { return {}; }
  std::string machine() const override { return {}; }
  int orientation() const override { return 0; }
};

struct InertApplication final : Application {
  ApplicationState state() const override { return ApplicationState::background; }
  int interfaceOrientation() const override { return 0; }
};

struct InertTelephony final : CTTelephonyNetworkInfo {
  std::optional<std::string> carrierName() const override { return std::nullopt; }
};

struct InertTracking final : ATTrackingManager, ASIdentifierManager {
  std::uint64_t trackingAuthorizationStatus() const override { return 0; }
  std::string advertisingIdentifier() const override {
    return "00000000-0000-0000-0000-000000000000";
  }
};

struct InertConnectivity final : ZKConnectivityManager {
  bool isReachableOnWiFi() const override { return false; }
};

struct InertURLSession final : ZKURLSessionManager {
  // Nothing is ever posted: posts start on the work queue or a timer, and neither runs here.
  void postData(PostRequest, URLSessionCallback) override {}
};

struct InertTokenProvider final : SessionTokenProvider, UserSessionManager {
  std::optional<std::string> sessionToken() const override { return std::nullopt; }
};

}  // namespace

Platform makeInertPlatform() {
  auto& tracking = *new InertTracking;
  auto& tokens = *new InertTokenProvider;
  return {
      .collectionHost = "",
      .wallClock = *new InertClock,
      .standardOutput = *new InertOutput,
      .dispatch = *new InertDispatch,
      .timers = *new InertTimers,
      .notificationCenter = *new InertNotificationCenter,
      .userDefaults = *new InertDefaults,
      .randomSource = *new InertRandomSource,
      .bundles = *new InertBundles,
      .application = *new InertApplication,
      .device = *new InertDevice,
      .telephony = *new InertTelephony,
      .trackingManager = tracking,
      .identifierManager = tracking,
      .connectivity = *new InertConnectivity,
      .urlSession = *new InertURLSession,
      .sessionTokenProvider = tokens,
      .userSessionManager = tokens,
  };
}

}  // namespace veltrano

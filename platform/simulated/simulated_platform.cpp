#include "platform/simulated/simulated_platform.h"

#include <algorithm>
#include <utility>

namespace veltrano::internal {
namespace {

constexpr std::string_view kResourceDirectory = "/Library/Resources";
constexpr std::string_view kResourceBundle = "/Library/Resources/Veltrano.bundle";

struct SimulatedTimer final : Timer {
  void invalidate() override { isValid = false; }
  bool isValid = true;
};

}  // namespace

void SimulatedClock::jump(Duration distance) {
  // The largest offset at which clock arithmetic cannot overflow.
  constexpr Duration kFarthest = std::chrono::seconds(4'000'000'000'000);
  jumped = std::clamp(jumped.load() + std::clamp(distance, -kFarthest, kFarthest), -kFarthest,
                      kFarthest);
}

std::shared_ptr<Timer> SimulatedTimers::schedule(Duration delay, Duration tolerance,
                                                 std::function<void()> action) {
  auto timer = std::make_shared<SimulatedTimer>();
  if (!timeline.isOnItsThread()) onLostTimer();
  if (!timeline.isOnItsThread() || !threadRunsRunLoop) return timer;
  if (keepsTolerance) delay = std::max(delay, tolerance);
  timeline.schedule(delay, [this, timer, action = std::move(action)] {
    onRunLoop([timer, action] {
      if (std::exchange(timer->isValid, false)) action();
    });
  });
  return timer;
}

double SimulatedDefaults::doubleForKey(std::string_view key) const {
  const auto place = values.find(key);
  return place != values.end() ? place->second : 0;
}

void SimulatedDefaults::setDouble(double value, std::string_view key) {
  const std::string name(key);
  values[name] = value;
  onWrite(name, value);
}

RandomBytes SimulatedRandomSource::bytes() {
  RandomBytes bytes;
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(generator());
  return bytes;
}

Bundle SimulatedBundles::libraryBundle() const {
  Bundle bundle;
  if (libraryHasResources) bundle.resourceDirectory = kResourceDirectory;
  bundle.infoDictionary = libraryInfo;
  return bundle;
}

std::optional<Bundle> SimulatedBundles::bundleAtPath(std::string_view path) const {
  if (path != kResourceBundle || !resourceBundleInfo) return std::nullopt;
  return Bundle{std::nullopt, resourceBundleInfo};
}

void SimulatedURLSession::postData(PostRequest request, URLSessionCallback callback) {
  onPost(request);
  const SimulatedAnswer answer = answers[request.path()];
  timeline.schedule(answer.latency, [answer, callback = std::move(callback)] {
    switch (answer.form) {
      case SimulatedAnswer::Form::http:
        return callback(answer.body, URLResponse{answer.status}, std::nullopt);
      case SimulatedAnswer::Form::transportError:
        return callback(std::nullopt, std::nullopt, TransportError{"simulated"});
      case SimulatedAnswer::Form::notHTTP:
        return callback(answer.body, URLResponse{}, std::nullopt);
    }
  });
}

SimulatedPlatform::SimulatedPlatform(std::shared_ptr<Timeline> line) : timeline_(std::move(line)) {
  network.answers[std::string(text(EndpointPath::heartbeat))].body = "{}";
}

Platform SimulatedPlatform::services() {
  return {
      .collectionHost = kSimulatedCollectionHost,
      .wallClock = &clock,
      .standardOutput = &output,
      .workQueue = &workQueue,
      .timers = &timers,
      .notificationCenter = &notificationCenter,
      .userDefaults = &defaults,
      .randomSource = &randomSource,
      .bundles = &bundles,
      .application = &device,
      .device = &device,
      .telephony = &device,
      .trackingManager = &device,
      .identifierManager = &device,
      .connectivity = &device,
      .urlSession = &network,
  };
}

}  // namespace veltrano::internal

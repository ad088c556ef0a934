#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

#include "test_kit/implementation.h"
#include "test_kit/json.h"
#include "veltrano/veltrano.h"

namespace veltrano::testing {

using namespace internal;

namespace {

std::string countedEvents(std::uint64_t count) {
  return std::to_string(count) + (count == 1 ? " event was" : " events were");
}

// Such as "2 Bought, 1 Seen".
std::string countedNames(const std::vector<std::string>& names) {
  std::map<std::string, std::uint64_t> counts;
  for (const std::string& name : names) ++counts[name];
  std::vector<std::string> texts;
  texts.reserve(counts.size());
  for (const auto& [name, times] : counts) texts.push_back(std::to_string(times) + ' ' + name);
  return joined(texts);
}

}  // namespace

World::Implementation::Implementation() {
  simulated_.timeline.pollWith([this] { return takeTurn(); });
  simulated_.timeline.isOnItsThread = [this] { return isOnMainThread(); };
  simulated_.notificationCenter.onFirstUse = [this] {
    isUsed_ = true;
    recorder_.add("shared");
  };
  simulated_.timers.keepsTolerance = true;
  simulated_.timers.onRunLoop = [this](const auto& action) {
    purpose_ == Purpose::advance && !runsMainLoop_ ? loop_.perform(action) : action();
  };
  simulated_.timers.onMainThread = [this](auto function) { onMainThread(std::move(function)); };
  simulated_.timers.onLostTimer = [this] {
    complain("A heartbeat was started on a thread that is not the main thread: it is never sent.");
  };
  Platform platform = simulated_.services();
  platform.urlSession = &network_;
  platform.sessionTokenProvider = &token_;
  substitute_.emplace(platform, *this, *this);
}

void World::Implementation::end() {
  if (!substitute_) return;
  isShutDown_ = true;
  if (isForkedChild()) {
    network_.drop();
    return substitute_.reset();
  }
  statistics_ = substitute_->statistics();
  if (const auto pending = waitingNames().size(); pending > 0)
    complain(countedEvents(pending) + " pending at the end" +
             (isCollecting_ ? "" : ", while collecting was off") + ", and dropped.");
  if (const char* directory = std::getenv("VELTRANO_TRACES")) {
    static std::atomic<int> worlds{0};
    const std::string file =
        std::string(directory) + '/' + std::to_string(getpid()) + '-' + std::to_string(++worlds);
    std::ofstream(file + ".jsonl") << trace();
    std::ofstream(file + ".posts") << recorder_.posts();
  }
  for (const std::string& item : checked_.covered) coverage_ << item << '\n';
  coverage_.close();
  Veltrano::isLoggerEnabled = false;
  network_.drop();  // before the library, which its callbacks use
  substitute_.reset();
  simulated_.notificationCenter.drop();
}

void World::Implementation::complain(const std::string& text) {
  const std::string time = std::to_string(std::chrono::duration<double>(now()).count());
  const Lock lock(mutex_);
  complaints_.push_back("at " + time + " s: " + text);
}

// The queue drops the oldest.
std::vector<std::string> World::Implementation::trimmedNames(std::uint64_t count) const {
  std::vector<std::string> names = trimmed_;
  for (std::size_t i = 0; i < waiting_.size() && names.size() < count; ++i)
    names.push_back(waiting_[i].name);
  return names;
}

std::vector<std::string> World::Implementation::waitingNames() const {
  const Statistics counts = statistics();
  const std::size_t kept = std::min(waiting_.size(), std::size_t(counts.waiting + counts.inFlight));
  std::vector<std::string> names;
  // The queue drops the oldest.
  for (auto event = waiting_.end() - std::ptrdiff_t(kept); event != waiting_.end(); ++event)
    names.push_back(event->name);
  const Lock lock(mutex_);
  names.insert(names.end(), unsettled_.begin(), unsettled_.end());
  return names;
}

std::string World::Implementation::trace() const {
  std::optional<DeviceFacts> device;
  {
    const Lock lock(mutex_);
    device = firstTracked_;
  }
  return recorder_.scenario(device ? *device : simulated_.device.facts(),
                            simulated_.bundles.mainInfo, initialSettings_);
}

World::World() : implementation_(std::make_unique<Implementation>()) {}
World::~World() = default;

Time World::now() const {
  return implementation_->now();
}

void World::jumpClock(Duration distance) {
  constexpr Duration kMax = std::chrono::seconds(1'000'000'000'000);  // what a trace can hold
  distance = std::clamp(distance, -kMax, kMax);
  implementation_->simulated_.clock.jump(distance);
  const std::chrono::duration<double> seconds = distance;
  implementation_->recorder_.add("clockJump", {{"seconds", json(seconds.count())}});
}

Network& World::network(std::string_view path) {
  if (const auto known = endpointPath(path)) return implementation_->networks[indexOf(*known)];
  std::string paths;
  for (const auto known : kEndpointPaths)
    paths.append(paths.empty() ? "\"" : " and \"").append(text(known)) += '"';
  throw Error("The library sends nothing to \"" + std::string(path) + "\", only to " + paths + '.');
}

Events World::delivered() const {
  return Events(implementation_->delivered, implementation_->waitingNames());
}

std::size_t World::waiting() const {
  const Statistics counts = statistics();
  return counts.waiting + counts.inFlight;
}

List<Heartbeat> World::heartbeats() const {
  return List(implementation_->heartbeats, " heartbeats");
}

List<Request> World::requests() const {
  return List(implementation_->requests, " requests");
}

Statistics World::statistics() const {
  return implementation_->statistics();
}

Complaints World::complaints() const {
  const Implementation& it = *implementation_;
  std::vector<std::string> complaints;
  {
    const Lock lock(it.mutex_);
    complaints = it.complaints_;
    if (!it.silenced_.empty())
      complaints.push_back(
          "Not recorded, because collecting was off: " + countedNames(it.silenced_) + '.');
  }
  const Statistics counts = statistics();
  const std::pair<std::uint64_t, std::string> losses[] = {
      {counts.droppedByTrimming, " dropped, the oldest first, because too many waited: " +
                                     countedNames(it.trimmedNames(counts.droppedByTrimming)) + '.'},
      {counts.droppedForMemory, " dropped because memory ran out."},
      {counts.droppedByBacklog, " dropped because 64 MiB of calls waited for an upload."},
      {counts.droppedByShutDown, " dropped by the shutdown."},
      {counts.droppedByOptOut, " dropped when collecting was switched off."},
  };
  for (const auto& [count, why] : losses)
    if (count > 0) complaints.push_back(countedEvents(count) + why);
  return Complaints(std::move(complaints), " complaints");
}

void World::resignActive() {
  implementation_->enter(ApplicationState::inactive, kApplicationWillResignActive);
}

void World::becomeActive() {
  implementation_->enter(ApplicationState::active, kApplicationDidBecomeActive);
}

void World::enterBackground() {
  resignActive();
  implementation_->enter(ApplicationState::background, kApplicationDidEnterBackground);
}

void World::enterForeground() {
  implementation_->enter(ApplicationState::inactive, kApplicationWillEnterForeground);
  becomeActive();
}

void World::setInterfaceOrientation(int orientation) {
  implementation_->setInterfaceOrientation(orientation);
}

void World::setDeviceOrientation(int orientation) {
  implementation_->setDeviceOrientation(orientation);
}

void World::setScreenSize(double width, double height) {
  implementation_->setScreenSize({width, height});
}

void World::setCarrierName(std::optional<std::string> name) {
  implementation_->setCarrierName(std::move(name));
}

void World::setWiFi(bool isConnected) {
  implementation_->report([&](DeviceFacts& facts) { facts.isOnWiFi = isConnected; }, {});
  if (isConnected) implementation_->network_.routeReturned();
}

void World::setModel(std::string model) {
  implementation_->simulated_.device.set(&DeviceFacts::machineName, std::move(model));
}

void World::setRunsMainLoop(bool runs) {
  implementation_->runsMainLoop_ = runs;
}

std::map<std::string, double> World::settings() const {
  const auto& values = implementation_->simulated_.defaults.values;
  return {values.begin(), values.end()};
}

void World::setSettings(const std::map<std::string, double>& settings) {
  implementation_->initialSettings_ = settings;
  implementation_->simulated_.defaults.values = {settings.begin(), settings.end()};
}

void World::setTrackingAuthorizationStatus(std::uint64_t status) {
  implementation_->setTrackingAuthorizationStatus(status);
}

void World::setAdvertisingIdentifier(const std::string& identifier) {
  implementation_->setAdvertisingIdentifier(identifier);
}

std::string World::trace() const {
  return implementation_->trace();
}

void World::writeTrace(const std::string& file) const {
  std::ofstream out(file, std::ios::binary);
  out << trace() << std::flush;
  if (!out) throw Error("The trace could not be written to " + file + '.');
}

void World::usePlan(const std::string& file) {
  try {
    implementation_->plan_ = planning::Plan::read(file);
  } catch (const planning::Faults& faults) {
    throw Error(faults.what());
  }
  const char* const directory = std::getenv("VELTRANO_PLAN_COVERAGE");
  if (directory == nullptr) return;
  std::error_code ignored;
  std::filesystem::create_directories(directory, ignored);
  const std::string notes = std::string(directory) + '/' + std::to_string(getpid());
  // Appends, because another process may have had the same id.
  implementation_->coverage_ = std::ofstream(notes, std::ios::app);
  if (!implementation_->coverage_)
    throw Error("VELTRANO_PLAN_COVERAGE: " + notes + " cannot be written.");
}

void World::end() {
  implementation_->refuseInCallback("A callback cannot end the world that calls it.");
  implementation_->end();
}

}  // namespace veltrano::testing

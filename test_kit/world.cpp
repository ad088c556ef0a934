#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <utility>

#include "encoding/uuid.h"
#include "platform/host_callback.h"
#include "platform/posix/platform_backend.h"
#include "test_kit/json.h"
#include "test_kit/recorder.h"
#include "test_kit/stage.h"
#include "test_kit/substitute.h"
#include "test_kit/version_check.h"
#include "tracker/call_observer.h"
#include "veltrano/testing.h"
#include "veltrano/veltrano.h"

namespace veltrano::testing {
namespace {

using internal::dropExceptions;
using internal::FlatView;
using internal::JSONWriter;
using internal::Kind;

constexpr std::string_view kExtraKey = "extra_json";
constexpr const char* kNoIdentifier = "00000000-0000-0000-0000-000000000000";
constexpr Duration kInstant{1};
constexpr Duration kLongestRun = std::chrono::hours(24);

// The one place for a world.
class Place {
 public:
  Place() {
    if (isTaken.exchange(true)) throw Error("There is a world already.");
  }
  ~Place() { isTaken = false; }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

 private:
  static inline constinit std::atomic<bool> isTaken{false};
};

// Whether an event holds the value at all.
bool isHeld(FlatView value) {
  if (value.kind() == Kind::Dictionary) return !value.contents().bytes().empty();
  return value.kind() != Kind::OtherObject && value.kind() != Kind::Absent;
}

// What is in the map under `path`, and under "extra_json" in that, comes from `origin`.
void addOrigins(Event::Origins& origins, std::string_view entries, Origin origin,
                const std::string& path = {}) {
  const internal::FlatContents contents(entries);
  for (auto entry = contents.begin(); entry != contents.end(); ++entry) {
    const FlatView key = *entry;
    const FlatView value = *++entry;
    if (key.kind() != Kind::String || !isHeld(value)) continue;
    const std::string name = path + std::string(key.text());
    origins[name] = origin;
    if (name == kExtraKey && value.kind() == Kind::Dictionary)
      addOrigins(origins, value.contents().bytes(), origin, name + '.');
  }
}

// The properties in a JSON object that was posted.
HostMap propertiesIn(std::string_view json) {
  const HostMap object = mapIn(parsedJSON(json)).value_or(HostMap());
  for (const auto& [key, value] : object)
    if (key == "properties") return mapIn(value).value_or(HostMap());
  return {};
}

// Appends where in `value` something stands that events cannot hold, and what it is.
void findLeftOut(const HostValue& value, const std::string& path, std::vector<std::string>& found) {
  if (value.otherObject()) found.push_back(path + " is an object of another type");
  if (value.member() == nullptr) return;
  if (const auto array = value.member()->getIf<Array>()) {
    std::size_t index = 0;
    for (const HostValue& element : *array)
      findLeftOut(element, path + '[' + std::to_string(index++) + ']', found);
  } else if (const auto dictionary = value.member()->getIf<Dictionary>()) {
    if (dictionary->empty()) found.push_back(path + " is an empty map");
    for (const DictionaryEntry& entry : *dictionary) {
      const auto* key = entry.key.member();
      const auto text = key != nullptr ? key->getIf<std::string>() : std::nullopt;
      findLeftOut(entry.value, path + '.' + text.value_or("(a key that is no text)"), found);
    }
  }
}

}  // namespace

class World::Implementation final : public internal::CallObserver, public internal::TestBackend {
 public:
  Implementation();
  ~Implementation() { end(); }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void advance(Duration time);
  void jumpClock(Duration distance);
  void end();

  // The library's observer.
  void called(std::string_view operation, const HostMapView& arguments) override;
  void recorded(const Event& event) override;

  // What the host's platform passes on.
  std::string install(PosixOptions options) override;
  RunLoop* currentRunLoop() override { return mainThread_.isCurrent() ? &loop_ : nullptr; }
  RunLoop& mainRunLoop() override { return loop_; }
  void enter(ApplicationState state, std::string_view notification) override;
  void setInterfaceOrientation(int orientation) override;
  void setDeviceOrientation(int orientation) override;
  void setScreenSize(internal::ScreenSize size) override;
  void setCarrierName(std::optional<std::string> name) override;
  void setTrackingAuthorizationStatus(std::uint64_t status) override;
  void setAdvertisingIdentifier(std::optional<std::string> identifier) override;
  void setWiFi(bool isConnected);

  Statistics statistics() const { return substitute_ ? substitute_->statistics() : statistics_; }
  Complaints complaints() const;
  std::string trace() const;

  Duration now() const { return clock_.sinceStart(); }
  std::map<std::string, Network, std::less<>> networks;
  std::vector<testing::Event> delivered;
  std::vector<Heartbeat> heartbeats;
  std::vector<Request> requests;

 private:
  // The main thread's run loop. Its functions are run like steps of a test.
  class Loop final : public RunLoop {
   public:
    explicit Loop(Implementation& world) : world_(world) {}

    void run() override;
    bool runUntil(std::chrono::steady_clock::time_point deadline) override;
    void stop() override;
    void perform(std::function<void()> function) override;
    int fileDescriptor() override { return -1; }
    void runDue() override;

    /// Adds a step for each function that has come since the last call.
    void scheduleFunctions(Duration time);
    void forgetSchedule() { scheduled_ = 0; }
    bool takeStop();

   private:
    bool runFor(Duration time);
    void runNext();

    Implementation& world_;
    std::size_t scheduled_ = 0;  // main thread; so many of the functions have a step
    std::mutex mutex_;
    std::deque<std::function<void()>> functions_;  // guarded by mutex_
    bool isToStop_ = false;                        // guarded by mutex_
  };

  struct RecordedEvent {
    std::string name;
    std::string json;
    testing::Event::Origins origins;
    Duration at;
  };

  bool canRun() const { return mainThread_.isCurrent() && substitute_; }
  bool run(Duration target, bool isForLoop);
  bool takeTurn();
  Answer choose(const internal::PostRequest& post);
  void arrive(const std::string& path, const Answer& answer);
  void beginBatch(std::string_view body);
  void noteHeartbeat(const std::string& body);
  void complain(const std::string& text);
  // On the main thread at once, elsewhere when its run loop runs.
  void onMainThread(std::function<void()> report);
  void post(std::string_view notification);
  void recordState(ApplicationState state);
  void recordDevice(const char* key, const Recorder::WriteFields& writeValue);
  void recordValue(std::string_view operation, int value);

  const Place place_;
  const MainThread mainThread_;
  SimulatedPlatform simulated_;
  StageClock clock_{mainThread_, simulated_.clock};
  Recorder recorder_{[this] { return clock_.sinceStart(); }};
  StageQueue queue_{mainThread_, simulated_.workQueue};
  StageNotifications notifications_;
  StageTimers timers_{mainThread_, simulated_.timers};
  StageDevice device_;
  StageNetwork network_{simulated_.timeline, [this](const auto& post) { return choose(post); },
                        [this](const auto& path, const auto& answer) { arrive(path, answer); }};
  StageToken token_;
  Loop loop_{*this};

  // Main thread.
  bool isRunning_ = false;
  bool endsWhenStopped_ = false;  // the run under way
  bool wasStopped_ = false;
  std::deque<RecordedEvent> waiting_;  // the queue of events; with some that it has dropped
  std::size_t batch_ = 0;              // so many of them are in the upload under way
  Statistics statistics_;              // at the end

  std::atomic<bool> isUsed_{false};
  std::atomic<bool> isInstalled_{false};
  std::atomic<std::size_t> unsettled_{0};  // events tracked since the last run

  mutable std::mutex mutex_;
  std::vector<std::string> complaints_;          // guarded by mutex_
  std::optional<SimulatedDevice> firstTracked_;  // guarded by mutex_; the device at that time

  std::optional<internal::Substitute> substitute_;
};

World::Implementation::Implementation() {
  expectLibraryOfThisRelease();
  simulated_.timeline.addTurn([this] { return takeTurn(); });
  notifications_.onFirstUse = [this] {
    isUsed_ = true;
    recorder_.add("shared");
  };
  timers_.onLostTimer = [this] {
    complain("A heartbeat was started on a thread that is not the main thread: it is never sent.");
  };
  internal::Platform platform = simulated_.services();
  platform.wallClock = &clock_;
  platform.workQueue = &queue_;
  platform.timers = &timers_;
  platform.notificationCenter = &notifications_;
  platform.application = &device_;
  platform.device = &device_;
  platform.telephony = &device_;
  platform.trackingManager = &device_;
  platform.identifierManager = &device_;
  platform.connectivity = &device_;
  platform.urlSession = &network_;
  platform.sessionTokenProvider = &token_;
  substitute_.emplace(platform, *this, *this);
}

void World::Implementation::end() {
  if (!substitute_) return;
  statistics_ = substitute_->statistics();
  if (const auto pending = statistics_.waiting + statistics_.inFlight + unsettled_; pending > 0)
    complain(std::to_string(pending) + " events were pending at the end, and are dropped.");
  if (const char* directory = std::getenv("VELTRANO_TRACES")) {
    static std::atomic<int> worlds{0};
    const std::string file =
        std::string(directory) + '/' + std::to_string(getpid()) + '-' + std::to_string(++worlds);
    std::ofstream(file + ".jsonl") << trace();
    std::ofstream(file + ".posts") << recorder_.posts();
  }
  Veltrano::isLoggerEnabled = false;
  network_.drop();  // which the library still takes part in
  substitute_.reset();
  notifications_.drop();
}

void World::Implementation::complain(const std::string& text) {
  const std::string time = std::to_string(std::chrono::duration<double>(now()).count());
  const std::lock_guard lock(mutex_);
  complaints_.push_back("at " + time + " s: " + text);
}

Complaints World::Implementation::complaints() const {
  std::vector<std::string> complaints;
  {
    const std::lock_guard lock(mutex_);
    complaints = complaints_;
  }
  const Statistics counts = statistics();
  if (counts.droppedByTrimming > 0)
    complaints.push_back(std::to_string(counts.droppedByTrimming) +
                         " events were dropped, the oldest first, because too many waited.");
  if (counts.droppedForMemory > 0)
    complaints.push_back(std::to_string(counts.droppedForMemory) +
                         " events were dropped for want of memory.");
  return Complaints(std::move(complaints));
}

std::string World::Implementation::trace() const {
  std::optional<SimulatedDevice> device;
  {
    const std::lock_guard lock(mutex_);
    device = firstTracked_;
  }
  return recorder_.scenario(device ? *device : device_.facts(), simulated_.bundles.mainInfo);
}

// ---- Time ----

void World::Implementation::advance(Duration time) {
  if (!substitute_) throw Error("The world has ended.");
  if (!mainThread_.isCurrent()) throw Error("A world is advanced by the thread that made it.");
  if (time < Duration::zero()) throw Error("A world cannot go back in time.");
  if (isRunning_) {
    const std::string error = "A callback cannot advance the world that calls it.";
    complain(error);  // as what callbacks throw is dropped
    throw Error(error);
  }
  run(now() + time + kInstant, false);
}

// Ends at `target` before everything that is due then: what is done next comes first in a scenario
// too. True when `stop` of the run loop ended it, which counts when `isForLoop`.
bool World::Implementation::run(Duration target, bool isForLoop) {
  struct Running {
    explicit Running(Implementation& running) : world(running) {
      world.isRunning_ = true;
      world.recorder_.setBeforeAll(false);
    }
    ~Running() {
      world.isRunning_ = world.endsWhenStopped_ = false;
      world.recorder_.setBeforeAll(true);
      world.clock_.publish();
      world.unsettled_ = 0;
    }
    Implementation& world;
  };
  const Running running(*this);
  internal::Timeline& timeline = simulated_.timeline;
  timeline.begin();
  loop_.forgetSchedule();
  loop_.scheduleFunctions(now());
  timeline.addStep(target, [&] { timeline.stop(); });
  endsWhenStopped_ = isForLoop;
  wasStopped_ = false;
  timeline.runUntil(target);
  if (timeline.isRunaway())
    complain("So much happens that it would never end: something sets itself off again.");
  return wasStopped_;
}

bool World::Implementation::takeTurn() {
  clock_.publish();
  loop_.scheduleFunctions(now() + kInstant);
  if (endsWhenStopped_ && loop_.takeStop()) {
    endsWhenStopped_ = false;
    simulated_.timeline.addStep(now() + kInstant, [this] {
      wasStopped_ = true;
      simulated_.timeline.stop();
    });
  }
  return queue_.takeSubmissions();
}

void World::Implementation::jumpClock(Duration distance) {
  // Far beyond any calendar, but no further than the arithmetic of clocks goes.
  constexpr Duration kFarthest = std::chrono::seconds(4'000'000'000'000);
  Duration& jumped = simulated_.clock.jumped;
  jumped = std::clamp(jumped + std::clamp(distance, -kFarthest, kFarthest), -kFarthest, kFarthest);
  clock_.publish();
  recorder_.add("clockJump", [&](JSONWriter& writer) {
    writer.key("seconds");
    writer.number(std::chrono::duration<double>(distance).count());
  });
}

// ---- The main run loop ----

void World::Implementation::Loop::run() {
  if (world_.canRun() && !runFor(kLongestRun))
    world_.complain("A run of the main run loop that nothing has stopped was ended after a day.");
}

bool World::Implementation::Loop::runUntil(std::chrono::steady_clock::time_point deadline) {
  const auto left = deadline - std::chrono::steady_clock::now();
  return runFor(std::min(std::chrono::duration_cast<Duration>(left), kLongestRun));
}

void World::Implementation::Loop::runDue() {
  if (world_.canRun() && !world_.isRunning_) world_.run(world_.now() + kInstant, false);
}

// True when stopped earlier.
bool World::Implementation::Loop::runFor(Duration time) {
  if (!world_.canRun()) return false;
  if (takeStop()) return true;
  if (world_.isRunning_) {
    world_.complain("The main run loop was run by a callback: it returned at once.");
    return true;
  }
  return world_.run(world_.now() + std::max(time, Duration::zero()) + kInstant, true);
}

void World::Implementation::Loop::stop() {
  const std::lock_guard lock(mutex_);
  isToStop_ = true;
}

bool World::Implementation::Loop::takeStop() {
  const std::lock_guard lock(mutex_);
  return std::exchange(isToStop_, false);
}

void World::Implementation::Loop::perform(std::function<void()> function) {
  if (!function) return;
  const std::lock_guard lock(mutex_);
  functions_.push_back(std::move(function));
}

void World::Implementation::Loop::scheduleFunctions(Duration time) {
  std::size_t count = 0;
  {
    const std::lock_guard lock(mutex_);
    count = functions_.size();
  }
  for (; scheduled_ < count; ++scheduled_)
    world_.simulated_.timeline.addStep(time, [this] { runNext(); });
}

void World::Implementation::Loop::runNext() {
  std::function<void()> function;
  {
    const std::lock_guard lock(mutex_);
    function = std::move(functions_.front());
    functions_.pop_front();
  }
  --scheduled_;
  world_.recorder_.setBeforeAll(true);
  dropExceptions(function);
  world_.recorder_.setBeforeAll(false);
}

// ---- What the host does ----

void World::Implementation::called(std::string_view operation, const HostMapView& arguments) {
  const HostMap given(arguments);  // reads the host's containers
  recorder_.addCall(operation, given, mainThread_.isCurrent());
  std::string name(operation);
  if (operation == "track") {
    ++unsettled_;
    const std::lock_guard lock(mutex_);
    if (!firstTracked_) firstTracked_ = device_.facts();
  }
  std::vector<std::string> leftOut;
  for (const auto& [key, value] : given) {
    if (key == "name") name = *value.member()->getIf<std::string>();
    if (key != "properties") continue;
    const HostMap properties = mapIn(value).value_or(HostMap());
    for (const auto& [property, held] : properties) findLeftOut(held, property, leftOut);
  }
  for (const std::string& what : leftOut)
    complain(std::string(name).append(": ").append(what).append(
        ", which events cannot hold; it was left out."));
}

void World::Implementation::recorded(const Event& event) {
  if (event.json.empty()) {
    complain(std::string(event.name) +
             " cannot be encoded, as it holds a dictionary with a key that is no text; the whole "
             "batch is dropped with it.");
    return;
  }
  RecordedEvent recorded{std::string(event.name), std::string(event.json), {}, now()};
  addOrigins(recorded.origins, event.defaultProperties.view().bytes(), Origin::defaultProperty);
  addOrigins(recorded.origins, event.superProperties.view().bytes(), Origin::superProperty);
  if (event.given.kind() == Kind::Dictionary)
    addOrigins(recorded.origins, event.given.contents().bytes(), Origin::event);
  waiting_.push_back(std::move(recorded));
}

std::string World::Implementation::install(PosixOptions options) {
  if (isInstalled_) {
    complain("A platform was installed for the second time.");
    return "A platform has been installed already.";
  }
  if (isUsed_) {
    complain("The platform was installed late: the library had been used before.");
    return "The library is in use already; install the platform before its first use.";
  }
  isInstalled_ = true;
  if (!mainThread_.isCurrent())
    complain("The platform was installed on another thread than the world's, the main thread.");
  simulated_.bundles.mainInfo = std::move(options.infoDictionary);
  if (options.logSink) simulated_.output.onLine = std::move(options.logSink);
  token_.function = std::move(options.sessionToken);
  device_.change([&](SimulatedDevice& device) {
    device.name = options.systemName.value_or(device.name);
    device.version = options.systemVersion.value_or(device.version);
    device.screen = {options.screenWidth, options.screenHeight};
    device.applicationState = static_cast<ApplicationState>(options.applicationState);
    device.screenOrientation = options.interfaceOrientation;
    device.deviceOrientation = options.deviceOrientation;
  });
  recordState(device_.facts().applicationState);
  recordValue("interfaceOrientation", options.interfaceOrientation);
  recordValue("deviceOrientation", options.deviceOrientation);
  setCarrierName(std::move(options.carrierName));
  setTrackingAuthorizationStatus(options.trackingAuthorizationStatus);
  if (options.advertisingIdentifier)
    setAdvertisingIdentifier(std::move(options.advertisingIdentifier));
  return {};
}

void World::Implementation::onMainThread(std::function<void()> report) {
  if (mainThread_.isCurrent())
    report();
  else
    loop_.perform(std::move(report));
}

void World::Implementation::post(std::string_view notification) {
  recorder_.add("notify", [&](JSONWriter& writer) {
    writer.key("name");
    writer.string(notification);
  });
  notifications_.post(std::string(notification));
}

void World::Implementation::recordState(ApplicationState state) {
  constexpr const char* kNames[] = {"active", "inactive", "background"};
  recorder_.add("applicationState", [&](JSONWriter& writer) {
    writer.key("state");
    writer.string(kNames[static_cast<int>(state)]);
  });
}

void World::Implementation::recordValue(std::string_view operation, int value) {
  recorder_.add(operation, [&](JSONWriter& writer) {
    writer.key("value");
    writer.integer(value);
  });
}

void World::Implementation::recordDevice(const char* key, const Recorder::WriteFields& writeValue) {
  recorder_.add("device", [&](JSONWriter& writer) {
    writer.key(key);
    writeValue(writer);
  });
}

void World::Implementation::enter(ApplicationState state, std::string_view notification) {
  onMainThread([this, state, notification] {
    device_.change([&](SimulatedDevice& device) { device.applicationState = state; });
    recordState(state);
    post(notification);
  });
}

void World::Implementation::setInterfaceOrientation(int orientation) {
  onMainThread([this, orientation] {
    device_.change([&](SimulatedDevice& device) { device.screenOrientation = orientation; });
    recordValue("interfaceOrientation", orientation);
    post(internal::kApplicationDidChangeStatusBarOrientation);
  });
}

void World::Implementation::setDeviceOrientation(int orientation) {
  onMainThread([this, orientation] {
    device_.change([&](SimulatedDevice& device) { device.deviceOrientation = orientation; });
    recordValue("deviceOrientation", orientation);
    post(internal::kDeviceOrientationDidChange);
  });
}

void World::Implementation::setScreenSize(internal::ScreenSize size) {
  device_.change([&](SimulatedDevice& device) { device.screen = size; });
}

void World::Implementation::setCarrierName(std::optional<std::string> name) {
  recordDevice("carrier", [&](JSONWriter& writer) { name ? writer.string(*name) : writer.null(); });
  device_.change([&](SimulatedDevice& device) { device.carrier.swap(name); });
}

void World::Implementation::setTrackingAuthorizationStatus(std::uint64_t status) {
  recordDevice("attStatus", [&](JSONWriter& writer) { writer.unsignedInteger(status); });
  device_.change([&](SimulatedDevice& device) { device.trackingStatus = status; });
}

// The text of a UUID, which anything else has been refused for or counts as none.
void World::Implementation::setAdvertisingIdentifier(std::optional<std::string> identifier) {
  std::string text = internal::canonicalUUID(identifier.value_or("")).value_or(kNoIdentifier);
  recordDevice("advertisingIdentifier", [&](JSONWriter& writer) { writer.string(text); });
  device_.change([&](SimulatedDevice& device) { device.identifier.swap(text); });
}

void World::Implementation::setWiFi(bool isConnected) {
  recordDevice("wifi", [&](JSONWriter& writer) { writer.boolean(isConnected); });
  device_.change([&](SimulatedDevice& device) { device.isOnWiFi = isConnected; });
}

// ---- The network ----

Answer World::Implementation::choose(const internal::PostRequest& post) {
  internal::URLRequest sent{post.baseURL, post.headerParameters};
  if (post.interceptor != nullptr) dropExceptions([&] { post.interceptor->intercept(sent); });
  Request request{pathOf(post.baseURL), post.qsParameters, std::move(sent.headers),
                  decodedBody(post.httpBody), now()};
  if (request.path == "/track") beginBatch(request.body);
  if (request.path == "/heartbeat") noteHeartbeat(request.body);
  Answer answer;
  if (request.path == "/heartbeat") answer.body = "{}";
  try {
    const auto rules = networks.find(request.path);
    if (rules != networks.end()) answer = rules->second.answerTo(request).value_or(answer);
  } catch (const std::exception& exception) {
    complain(std::string("The answer to a post could not be made: ") + exception.what());
    answer = {};
    answer.isTransportError = true;
  }
  recorder_.addPost(post);
  recorder_.addAnswer(request.path, answer);
  requests.push_back(std::move(request));
  return answer;
}

// Finds the events of an upload among those that were recorded: all of them, but for what the
// queue has dropped meanwhile.
void World::Implementation::beginBatch(std::string_view body) {
  std::size_t position = 1;  // after the bracket
  auto event = waiting_.begin();
  while (event != waiting_.end() && position < body.size()) {
    if (body.substr(position, event->json.size()) == event->json) {
      position += event->json.size() + 1;  // and what separates them
      ++event;
    } else {
      event = waiting_.erase(event);
    }
  }
  batch_ = static_cast<std::size_t>(event - waiting_.begin());
}

void World::Implementation::noteHeartbeat(const std::string& body) {
  heartbeats.emplace_back(propertiesIn(body), now());
}

void World::Implementation::arrive(const std::string& path, const Answer& answer) {
  if (path != "/track" || answer.isTransportError) return;
  if (answer.status != 200 && answer.status != 400) return;
  const auto end = waiting_.begin() + static_cast<std::ptrdiff_t>(batch_);
  std::string names;
  for (auto event = waiting_.begin(); event != end; ++event) {
    names += (names.empty() ? "" : ", ") + event->name;
    if (answer.status == 200)
      delivered.emplace_back(std::move(event->name), propertiesIn(event->json),
                             std::move(event->origins), event->at);
  }
  if (answer.status == 400)
    complain("The collection host called a batch bad, with status 400, and it was dropped: " +
             names);
  waiting_.erase(waiting_.begin(), end);
  batch_ = 0;
}

// ---- The world ----

World::World() : implementation_(std::make_unique<Implementation>()) {}
World::~World() = default;

void World::advance(Duration time) {
  implementation_->advance(time);
}

Duration World::now() const {
  return implementation_->now();
}

void World::jumpClock(Duration distance) {
  implementation_->jumpClock(distance);
}

Network& World::network(std::string_view path) {
  return implementation_->networks[std::string(path)];
}

Events World::delivered() const {
  return Events(implementation_->delivered);
}

std::size_t World::waiting() const {
  const Statistics counts = statistics();
  return counts.waiting + counts.inFlight;
}

List<Heartbeat> World::heartbeats() const {
  return List(implementation_->heartbeats);
}

List<Request> World::requests() const {
  return List(implementation_->requests);
}

Statistics World::statistics() const {
  return implementation_->statistics();
}

Complaints World::complaints() const {
  return implementation_->complaints();
}

void World::resignActive() {
  implementation_->enter(ApplicationState::inactive, internal::kApplicationWillResignActive);
}

void World::becomeActive() {
  implementation_->enter(ApplicationState::active, internal::kApplicationDidBecomeActive);
}

void World::enterBackground() {
  resignActive();
  implementation_->enter(ApplicationState::background, internal::kApplicationDidEnterBackground);
}

void World::enterForeground() {
  implementation_->enter(ApplicationState::inactive, internal::kApplicationWillEnterForeground);
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
  implementation_->setWiFi(isConnected);
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

void World::end() {
  implementation_->end();
}

}  // namespace veltrano::testing

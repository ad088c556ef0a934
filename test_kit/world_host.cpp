// What a world is told: the calls of the host, the installation of the platform, and the reports to
// it.
#include <utility>

#include "platform/host_callback.h"
#include "platform/simulated/trace_text.h"
#include "test_kit/implementation.h"
#include "test_kit/json.h"

namespace veltrano::testing {
namespace {

using namespace internal;

constexpr std::string_view kExtraKey = "extra_json";

// Sets the origin of each entry, and of each entry inside "extra_json".
void addOrigins(Event::Origins& origins, std::string_view entries, Origin origin,
                const std::string& path = {}) {
  const FlatContents contents(entries);
  for (auto entry = contents.begin(); entry != contents.end(); ++entry) {
    const FlatView key = *entry;
    const FlatView value = *++entry;
    if (key.kind() != Kind::String || !isSendable(value)) continue;
    const std::string name = path + std::string(key.text());
    origins.insert_or_assign(name, origin);
    if (name == kExtraKey && value.kind() == Kind::Dictionary)
      addOrigins(origins, value.contents().bytes(), origin, name + '.');
  }
}

// Describes each part of `value` that arrives as something else, or not at all.
void findChanged(const HostValue& value, const std::string& path, std::vector<std::string>& found) {
  if (value.isAbsent()) return;
  if (!isSendable(viewOf(value))) {
    const char* const what = value.otherObject() ? "an object of another type" : "an empty map";
    found.push_back(path + " is " + what + ", which events cannot hold; it was left out.");
  } else if (isNotFinite(value)) {
    found.push_back(path + " is not finite, which JSON cannot express; it is sent as null.");
  } else if (value.member() == nullptr) {
    return;  // a boxed number
  } else if (const auto array = value.member()->getIf<Array>()) {
    std::size_t index = 0;
    for (const HostValue& element : *array)
      findChanged(element, path + '[' + std::to_string(index++) + ']', found);
  } else if (const auto dictionary = value.member()->getIf<Dictionary>()) {
    for (const DictionaryEntry& entry : *dictionary) {
      const auto* key = entry.key.member();
      const auto text = key != nullptr ? key->getIf<std::string>() : std::nullopt;
      findChanged(entry.value, path + '.' + text.value_or("(a key that is not text)"), found);
    }
  }
}

// From C and Objective-C, events hold a level less, because the map of the properties counts.
constexpr int kSurelyHeld = kMaxNesting - 1;

// Whether there is an absent value in a container at the deepest level: what nests deeper.
bool isCut(FlatView value, int level = 1) {
  if (level + value.depth() <= kSurelyHeld) return false;
  for (const FlatView inner : value.contents()) {
    const bool isLast = level == kSurelyHeld;
    if (isLast ? inner.kind() == Kind::Absent : inner.isContainer() && isCut(inner, level + 1))
      return true;
  }
  return false;
}

}  // namespace

void World::Implementation::given(std::string_view eventName,
                                  std::function<void(bool)>& completion) {
  // Destroyed with the completion.
  struct Watch {
    ~Watch() {
      // A shutdown drops completions, too, but only its flush replaces one that could be called.
      const bool isReplaced = world.isOnMainThread() && world.purpose_ == Purpose::flush;
      if (!wasCalled && (!world.isShutDown_ || isReplaced))
        world.complain(name +
                       " is never called: a later flush replaced it, the application was in the "
                       "background, or collecting was off.");
    }
    Implementation& world;
    const std::string name;
    const std::function<void(bool)> completion;
    std::atomic<bool> wasCalled{false};
  };
  std::shared_ptr<Watch> watch(new Watch{
      *this, "The completion of " + std::string(eventName), std::move(completion), {false}});
  completion = [watch](bool isDelivered) {
    watch->wasCalled = true;
    watch->world.watched(watch->name, [&] { watch->completion(isDelivered); });
  };
}

void World::Implementation::given(std::function<void()>& refreshHandler) {
  refreshHandler = [this, handler = std::move(refreshHandler)] {
    watched("The refresh handler", handler);
  };
}

void World::Implementation::called(std::string_view operation, const HostMapView& arguments) {
  const HostMap given(arguments);  // copies the host's containers
  recorder_.addCall(operation, given, isOnMainThread() && runsMainLoop_);
  std::string name(operation);
  std::vector<std::string> changed;
  for (const auto& [key, value] : given) {
    if (key == "name") name = *value.member()->getIf<std::string>();
    if (key != "properties") continue;
    const HostMap properties = mapIn(value).value_or(HostMap());
    for (const auto& [property, held] : properties) {
      findChanged(held, property, changed);
      if (isCut(viewOf(held)))
        changed.push_back(property + " nests more than " + std::to_string(kSurelyHeld) +
                          " deep; what is deeper may be left out.");
      if (property == kExtraKey && !held.isAbsent() && !mapIn(held))
        changed.push_back("extra_json is no map; it was left out.");
    }
  }
  for (const std::string& what : changed) complain(std::string(name).append(": ").append(what));
  const Lock lock(mutex_);
  if (operation == "setCollecting") isCollecting_ = given.begin()->value == true;
  if (operation != "track") return;
  if (!isCollecting_) return silenced_.push_back(std::move(name));
  if (!firstTracked_) firstTracked_ = simulated_.device.facts();
  unsettled_.push_back(std::move(name));
}

void World::Implementation::refused(std::string_view operation, std::size_t argument) {
  constexpr const char* kPlaces[] = {"first", "second", "third"};
  complain(std::string(operation) + " did nothing: " +
           (argument == kNoArgument
                ? "there is no such operation, or it takes another number of arguments."
                : std::string("its ") + kPlaces[argument] +
                      " argument is missing or has the wrong type."));
}

void World::Implementation::dropped() {
  trimmed_ = trimmedNames(statistics().droppedByTrimming);
  waiting_.clear();
  batch_ = 0;
}

void World::Implementation::recorded(const QueuedEvent& event) {
  if (event.json.empty()) {
    complain(std::string(event.name) +
             " cannot be encoded, as it holds a dictionary with a key that is not text; the whole "
             "batch is dropped with it.");
    return;
  }
  RecordedEvent recorded{std::string(event.name), std::string(event.json), {}, now()};
  addOrigins(recorded.origins, event.defaultProperties.view().bytes(), Origin::defaultProperty);
  addOrigins(recorded.origins, event.superProperties.view().bytes(), Origin::superProperty);
  if (event.given.kind() == Kind::Dictionary)
    addOrigins(recorded.origins, event.given.contents().bytes(), Origin::event);
  if (plan_)
    for (const std::string& violation : plan_->check(event.json, checked_)) complain(violation);
  waiting_.push_back(std::move(recorded));
}

std::string World::Implementation::install(PosixOptions options, std::string error,
                                           std::string fileError) {
  if (isInstalled_) {
    complain("A platform was installed for the second time.");
    return "A platform has been installed already.";
  }
  if (!error.empty()) {
    complain("The platform was refused: " + error);
    return error;
  }
  if (isUsed_) {
    complain("The platform was installed late: the library had been used before.");
    return "The library is in use already; install the platform before its first use.";
  }
  isInstalled_ = true;
  if (!fileError.empty()) complain("Outside a world the platform would be refused: " + fileError);
  if (!isOnMainThread())
    complain("The platform was installed on another thread than the world's, the main thread.");
  substitute_->configure(std::move(options.collectionHost), std::move(options.withheldProperties));
  simulated_.bundles.mainInfo = std::move(options.infoDictionary);
  if (options.logSink)
    simulated_.output.onLine = [this, sink = std::move(options.logSink)](std::string_view line) {
      callHost([&] { watched("The log sink", [&] { sink(line); }); });
    };
  onTransfer_ = std::move(options.onTransfer);
  if (options.sessionToken)
    token_.hostsToken = [this, function = std::move(options.sessionToken)] {
      return watched("The session token's function", function);
    };
  report(
      [&](DeviceFacts& facts) {
        if (options.systemName) facts.name = *options.systemName;
        if (options.systemVersion) facts.version = *options.systemVersion;
        facts.screen = {options.screenWidth, options.screenHeight};
        facts.applicationState = static_cast<ApplicationState>(options.applicationState);
        facts.screenOrientation = options.interfaceOrientation;
        facts.deviceOrientation = options.deviceOrientation;
        facts.carrier = std::move(options.carrierName);
        facts.trackingStatus = options.trackingAuthorizationStatus;
        if (options.advertisingIdentifier) facts.identify(options.advertisingIdentifier);
      },
      {});
  return {};
}

void World::Implementation::onMainThread(std::function<void()> report) {
  auto unlessShutDown = [this, report = std::move(report)] {
    if (!isShutDown_) report();
  };
  if (isOnMainThread())
    unlessShutDown();
  else
    loop_.perform(std::move(unlessShutDown));
}

void World::Implementation::post(std::string_view notification) {
  recorder_.add("notify", {{"name", json(notification)}});
  simulated_.notificationCenter.post(notification);
}

void World::Implementation::report(DeviceChange change, std::string_view notification) {
  auto makeChange = [this, change = std::move(change), notification] {
    DeviceFacts before, now;
    simulated_.device.change([&](DeviceFacts& facts) {
      before = facts;
      change(facts);
      now = facts;
    });
    recordChanges(before, now);
    if (!notification.empty()) post(notification);
  };
  if (notification.empty())
    makeChange();
  else
    onMainThread(std::move(makeChange));
}

void World::Implementation::recordChanges(const DeviceFacts& before, const DeviceFacts& now) {
  if (now.applicationState != before.applicationState)
    recorder_.add("applicationState",
                  {{"state", json(kApplicationStates[int(now.applicationState)])}});
  if (now.screenOrientation != before.screenOrientation)
    recorder_.add("interfaceOrientation", {{"value", json(now.screenOrientation)}});
  if (now.deviceOrientation != before.deviceOrientation)
    recorder_.add("deviceOrientation", {{"value", json(now.deviceOrientation)}});
  JSONMembers others;
  if (now.isOnWiFi != before.isOnWiFi) others.emplace_back("wifi", json(now.isOnWiFi));
  if (now.carrier != before.carrier)
    others.emplace_back("carrier", now.carrier ? json(*now.carrier) : "null");
  if (now.trackingStatus != before.trackingStatus)
    others.emplace_back("attStatus", json(now.trackingStatus));
  if (now.identifier != before.identifier)
    others.emplace_back("advertisingIdentifier", json(now.identifier));
  if (!others.empty()) recorder_.add("device", others);
}

}  // namespace veltrano::testing

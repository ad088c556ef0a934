#include "tools/fleet/application.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "heartbeat/heartbeat_interval.h"

namespace fleet {

namespace {

// Midnight, UTC.
constexpr Duration kFirstDay = std::chrono::seconds(1'700'006'400);
// Spreads the flush cycles of applications that are in the foreground at the start.
constexpr double kFlushCycleSeconds = 20;

bool isBalanced(const Statistics& s) {
  return s.recorded == s.waiting + s.inFlight + s.delivered + s.dropped();
}

}  // namespace

struct Application::Process {
  Process(const Application& owner, std::uint32_t seed)
      : platform(owner.timeline_), session(platform.clock, *owner.timeline_, owner.host_, seed) {
    platform.clock.start = kFirstDay + owner.scenario_.startsAt;
    platform.randomSource.generator.seed(seed);
    platform.bundles.mainInfo =
        HostMap{{"CFBundleShortVersionString", "5.12.0"}, {"CFBundleVersion", "51200"}};
    if (const auto interval = owner.scenario_.usage.storedInterval)
      platform.defaults.setDouble(seconds(*interval), kHeartbeatIntervalKey);
  }

  Platform services() {
    auto services = platform.services();
    services.urlSession = &session;
    return services;
  }

  // Nothing of it happens any more.
  void silence() {
    platform.timers.onRunLoop = [](const auto&) {};
    platform.workQueue.stop();
    session.silence();
  }

  void enter(ApplicationState state) { platform.device.set(&DeviceFacts::applicationState, state); }

  void post(std::string_view notification) const { platform.notificationCenter.post(notification); }

  Statistics statistics() { return library.accounting().statistics(); }

  SimulatedPlatform platform;
  ClientSession session;
  Library library{services()};
  std::uint64_t tracked = 0;
};

Application::Application(int number, const Scenario& scenario, std::shared_ptr<Timeline> timeline,
                         CollectionHost& host)
    : number_(number),
      scenario_(scenario),
      timeline_(std::move(timeline)),
      host_(host),
      random_(tools::Random(scenario.seed).next() + static_cast<std::uint64_t>(number)) {
  const Usage& usage = scenario_.usage;
  const double share = usage.foregroundShare() * usage.swingAt(scenario_.startsAt);
  changesAt_ = random_.uniform() < share
                   ? durationFromSeconds(random_.uniform() * kFlushCycleSeconds)
                   : nextSession();
  scheduleNext();
}

Application::~Application() = default;

bool Application::addTo(Statistics& sum) const {
  bool areBalanced = true;
  const auto addProcess = [&](Process& process) {
    Statistics one = process.statistics();
    areBalanced &= isBalanced(one);
    if (&process != process_.get()) one.waiting = one.inFlight = 0;
    add(sum, one);
  };
  for (const auto& process : ended_) addProcess(*process);
  if (process_) addProcess(*process_);
  return areBalanced;
}

void Application::closeConnections() {
  if (process_) process_->session.closeConnections();
}

// Events are a Poisson process, which has no memory, so each step may draw the next event anew.
void Application::scheduleNext() {
  const Duration now = timeline_->now();
  const Usage& usage = scenario_.usage;
  const double eventsPerMinute =
      isInForeground_ ? usage.eventsPerMinute : usage.backgroundEventsPerMinute();
  Duration next = std::min(changesAt_, endsAt_);
  if (process_ && eventsPerMinute > 0)
    next = std::min(next, now + random_.exponential(60 / eventsPerMinute));
  timeline_->addStep(next, [this] { act(); });
}

void Application::act() {
  if (hasEnded_) return;
  if (timeline_->now() >= endsAt_)
    endProcess();
  else if (timeline_->now() >= changesAt_)
    changeSides();
  else
    track();
  scheduleNext();
}

void Application::changeSides() {
  isInForeground_ = !isInForeground_;
  const Duration now = timeline_->now();
  if (!isInForeground_) {
    changesAt_ = nextSession();
    if (random_.isAmong(scenario_.usage.crashShare)) return endProcess();
    process_->enter(ApplicationState::background);
    process_->post(kApplicationDidEnterBackground);
    if (random_.isAmong(scenario_.usage.endShare))
      endsAt_ = now + std::chrono::duration_cast<Duration>(random_.uniform() * (changesAt_ - now));
    return;
  }
  changesAt_ = now + random_.exponential(seconds(scenario_.usage.sessionLength));
  if (!process_) return launch();
  process_->enter(ApplicationState::active);
  process_->post(kApplicationWillEnterForeground);
  process_->post(kApplicationDidBecomeActive);
}

void Application::endProcess() {
  endsAt_ = Duration::max();
  process_->silence();
  const auto counts = process_->statistics();
  lost_ += process_->tracked + counts.heartbeatsFailed + counts.heartbeatsPutOff -
           counts.delivered - counts.dropped();
  ended_.push_back(std::move(process_));
}

void Application::launch() {
  process_ = std::make_unique<Process>(*this, static_cast<std::uint32_t>(random_.next()));
  if (!ended_.empty()) process_->platform.defaults.values = ended_.back()->platform.defaults.values;
  auto& tracker = process_->library.tracker();
  tracker.setAppId("veltrano.example");
  tracker.setLibVersion("5.12.0");
  tracker.setUserId("user-" + std::to_string(number_));
  process_->post(kApplicationDidBecomeActive);
}

void Application::track() {
  static constexpr std::string_view kNames[] = {"Screen Viewed", "Item Played", "Item Paused",
                                                "Search Made"};
  ++tracked_;
  ++process_->tracked;
  // Drawn one by one: compilers evaluate arguments in different orders.
  const std::string item = "item-" + std::to_string(random_.below(1'000'000));
  const double position = static_cast<double>(random_.below(3'600'000)) / 1000;
  const bool isOffline = random_.below(10) == 0;
  const std::string_view name = kNames[random_.below(std::size(kNames))];
  process_->library.tracker().track(name,
                                    {{"screen", "recommendations"},
                                     {"item", item},
                                     {"position", position},
                                     {"plan", "premium"},
                                     {"is_offline", isOffline}},
                                    nullptr);
}

// Draws candidates at the busiest rate, and accepts the share that the time of the day allows.
Duration Application::nextSession() {
  const Usage& usage = scenario_.usage;
  const double gapSeconds = kSecondsPerDay / usage.sessionsPerDay * (1 - usage.foregroundShare());
  const double busiest = 1 + usage.dailySwing;
  Duration at = timeline_->now();
  do {
    at += random_.exponential(gapSeconds / busiest);
  } while (random_.uniform() * busiest >= usage.swingAt(scenario_.startsAt + at));
  return at;
}

void Application::end() {
  hasEnded_ = true;
  if (isInForeground_) changeSides();
}

}  // namespace fleet

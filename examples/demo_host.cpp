// An example host: a music player that calls every operation of the library, from several threads,
// against a collector that counts what arrives. Its events follow demo_plan.json.
//
//     demo_host HOST:PORT CERTIFICATE
//
// Exits with 0 when exactly the recorded events, and the heartbeats, have arrived.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <functional>
#include <future>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "demo.h"
#include "examples/collector_control.h"
#include "veltrano/posix_platform.h"
#include "veltrano/veltrano.h"

namespace {

using Clock = std::chrono::steady_clock;
using Counters = CollectorControl::Counters;

// The limit of all waiting together.
constexpr std::chrono::seconds kPatience{25};

constexpr int kLandscape = 3;

using Room = demo::SongPlayed::Room;
using Plan = demo::SuperProperties::Plan;

class Player {
 public:
  Player(veltrano::PosixPlatform& platform, CollectorControl collector)
      : platform_(platform), collector_(std::move(collector)) {}

  void start();
  void play();
  bool reportArrivals();
  void log(std::string_view line);

 private:
  void playSongsOnTwoThreads();
  void checkOut();
  void loseAndRegainTheCollector();
  void turn();
  void goToTheBackgroundAndReturn();

  template <class Event>
  void record(const Event& event);
  template <class Event>
  bool recordAndUpload(const Event& event);
  void onMainThread(std::function<void()> function);
  void waitFor(std::uint64_t Counters::*counter, std::uint64_t count);

  veltrano::PosixPlatform& platform_;
  CollectorControl collector_;
  const Clock::time_point deadline_ = Clock::now() + kPatience;
  std::atomic<std::uint64_t> recorded_{0};
};

void require(bool condition, const char* complaint) {
  if (!condition) throw std::runtime_error(complaint);
}

void say(const std::string& line) {
  std::cout << "\n" << line << std::endl;
}

// On the main thread: heartbeats are sent on the thread that calls setUserId first.
void Player::start() {
  say("The player names itself and the user. A second later comes the first heartbeat.");
  auto& tracker = Veltrano::shared();
  tracker.setAppId("player");
  tracker.setLibVersion("1.0.0");
  tracker.setUserId("user-17");
  tracker.setPublisherUid("listener-4");

  platform_.setScreenSize(1280, 800);
  platform_.setCarrierName("Example Mobile");
  platform_.setTrackingAuthorizationStatus(3);
  platform_.setAdvertisingIdentifier("6D92078A-8246-4BA4-AE5B-76104861E7DC");
  tracker.setIdfa();
}

void Player::play() {
  playSongsOnTwoThreads();
  checkOut();
  loseAndRegainTheCollector();
  turn();
  waitFor(&Counters::heartbeats, 1);
  goToTheBackgroundAndReturn();
  waitFor(&Counters::heartbeats, 2);

  say("The user signs out: the last events go before the ids do.");
  require(recordAndUpload(demo::SignedOut{}), "The upload failed.");
  Veltrano::shared().removeSuperProperty("uid");
  Veltrano::shared().setPublisherUid(nullptr);

  say("Consent is withdrawn and given again; what happens in between is not recorded.");
  Veltrano::shared().setCollecting(false);
  demo::track(demo::SongPlayed{.room = Room::attic, .track = 1});
  Veltrano::shared().setCollecting(true);
  require(recordAndUpload(demo::ConsentGiven{}), "The last upload failed.");
}

void Player::playSongsOnTwoThreads() {
  say("Two threads record five events each. The tenth makes the library upload them all.");
  demo::setSuperProperties(demo::SuperProperties{.plan = Plan::free, .experiment = "blue"});
  const auto playFive = [this](Room room) {
    for (int track = 1; track <= 5; ++track) record(demo::SongPlayed{.room = room, .track = track});
  };
  std::thread kitchen(playFive, Room::kitchen);
  std::thread garden(playFive, Room::garden);
  kitchen.join();
  garden.join();
  waitFor(&Counters::events, recorded_);
}

void Player::checkOut() {
  say("A refresh trigger brings the plan up to date before the event; properties may be nested.");
  auto& tracker = Veltrano::shared();
  tracker.removeSuperProperty("experiment");
  tracker.setRefreshTriggersWithHandler(
      {{"Bought"}}, [] { demo::setSuperProperties(demo::SuperProperties{.plan = Plan::pro}); });
  const bool wasDelivered =
      recordAndUpload(demo::Bought{.items = {"ticket", "poster"},
                                   .total = 31.5,
                                   .address = demo::Bought::Address{.city = "Lisbon", .floor = 2}});
  require(wasDelivered, "The upload failed.");
  tracker.setRefreshTriggersWithHandler(std::nullopt, nullptr);
}

void Player::loseAndRegainTheCollector() {
  say("The collector answers 503 for a while. The events wait, and nothing is lost.");
  collector_.misbehave("/track", 503);
  record(demo::SongPlayed{.room = Room::cellar});
  require(!recordAndUpload(demo::SongPaused{}),
          "The collector accepted what it should have refused.");
  std::cout << "(an upload failed)" << std::endl;
  collector_.behave("/track");
  require(recordAndUpload(demo::SongResumed{}), "The upload failed.");
}

void Player::turn() {
  say("The screen and the device turn; the library records both itself.");
  onMainThread([this] {
    platform_.setInterfaceOrientation(kLandscape);
    platform_.setDeviceOrientation(kLandscape);
  });
  recorded_ += 2;
  const auto& tracker = Veltrano::shared();
  std::cout << "(screen: " << tracker.getScreenOrientation()
            << ", device: " << tracker.getDeviceOrientation() << ')' << std::endl;
}

void Player::goToTheBackgroundAndReturn() {
  say("In the background the library uploads once and then rests.");
  record(demo::SongPlayed{.room = Room::attic});
  onMainThread([this] {
    platform_.applicationWillResignActive();
    platform_.applicationDidEnterBackground();
  });
  waitFor(&Counters::events, recorded_);
  record(demo::SongEnded{});
  std::this_thread::sleep_for(std::chrono::milliseconds(500));

  say("Back again, the next heartbeat comes after a second.");
  onMainThread([this] {
    platform_.applicationWillEnterForeground();
    platform_.applicationDidBecomeActive();
  });
}

template <class Event>
void Player::record(const Event& event) {
  ++recorded_;
  demo::track(event);
}

// Uploads this event and all waiting ones. Returns whether they were accepted.
template <class Event>
bool Player::recordAndUpload(const Event& event) {
  ++recorded_;
  const auto outcome = std::make_shared<std::promise<bool>>();
  demo::track(event, [outcome](bool accepted) { outcome->set_value(accepted); });
  auto future = outcome->get_future();
  require(future.wait_until(deadline_) == std::future_status::ready, "The upload has no outcome.");
  return future.get();
}

// Waits until the function has run, so that its effect is visible.
void Player::onMainThread(std::function<void()> function) {
  const auto done = std::make_shared<std::promise<void>>();
  platform_.mainRunLoop().perform([done, function = std::move(function)] {
    function();
    done->set_value();
  });
  require(done->get_future().wait_until(deadline_) == std::future_status::ready,
          "The main thread is stuck.");
}

// Waits until the collector's counter has reached `count`.
void Player::waitFor(std::uint64_t Counters::*counter, std::uint64_t count) {
  while (collector_.counters().*counter < count) {
    require(Clock::now() < deadline_, "An event or a heartbeat is missing.");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

// Called on any thread. Counts failed heartbeats, which the library records as events.
void Player::log(std::string_view line) {
  if (line.find("| Adding event of Heartbeat Failed ") != line.npos) ++recorded_;
  if (line.find("| Setting ") != line.npos) std::cout << "log: " << line << std::endl;
}

bool Player::reportArrivals() {
  const auto arrived = collector_.counters();
  say(std::to_string(recorded_) + " events recorded, " + std::to_string(arrived.events) +
      " arrived, and " + std::to_string(arrived.heartbeats) + " heartbeats.");
  return arrived.events == recorded_;
}

bool run(const std::string& collectionHost, const std::string& certificate) {
  veltrano::PosixOptions options;
  options.collectionHost = collectionHost;
  options.certificateAuthorities = certificate;
  options.infoDictionary = veltrano::HostMap{{"CFBundleShortVersionString", "2.7"}};
  options.onTransfer = [](const veltrano::TransferReport& transfer) {
    if (transfer.status != 200)
      std::cout << "(" << transfer.path << ": " << transfer.status << ' ' << transfer.reason << ")"
                << std::endl;
  };
  options.sessionToken = [] { return "demo-token"; };
  // The sink may be called until the process ends, so the player is never destroyed.
  static Player* player = nullptr;
  options.logSink = [](std::string_view line) { player->log(line); };
  const auto installation = veltrano::PosixPlatform::install(std::move(options));
  require(bool(installation), installation.error.c_str());

  player = new Player(*installation.platform, CollectorControl(collectionHost, certificate));
  Veltrano::isLoggerEnabled = true;
  veltrano::RunLoop& loop = installation.platform->mainRunLoop();
  player->start();
  auto playing = std::async(std::launch::async, [&] {
    struct AtEnd {
      veltrano::RunLoop& loop;
      ~AtEnd() { loop.stop(); }
    } const atEnd{loop};
    player->play();
  });
  loop.run();  // until the player stops it
  playing.get();
  return player->reportArrivals();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: demo_host HOST:PORT CERTIFICATE\n";
    return 2;
  }
  try {
    return run(argv[1], argv[2]) ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    std::cerr << "demo_host: " << error.what() << '\n';
    return EXIT_FAILURE;
  }
}

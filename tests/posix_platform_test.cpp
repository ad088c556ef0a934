#include "veltrano/posix_platform.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "platform/posix/bundles.h"
#include "platform/posix/collection_host.h"
#include "platform/posix/default_route.h"
#include "platform/posix/delayed_items.h"
#include "platform/posix/fork.h"
#include "platform/posix/notification_center.h"
#include "platform/posix/property_list.h"
#include "platform/posix/run_loop.h"
#include "platform/posix/standard_output.h"
#include "platform/posix/tracking.h"
#include "platform/posix/user_defaults.h"
#include "platform/posix/work_queue.h"

namespace veltrano {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

WorkQueue& makeQueue(std::string_view label = "test") {
  return PosixDispatch().makeSerialQueue(label);
}

// Waits for everything submitted to `queue` before.
void drain(WorkQueue& queue) {
  std::promise<void> drained;
  queue.async([&] { drained.set_value(); });
  ASSERT_EQ(drained.get_future().wait_for(seconds(30)), std::future_status::ready);
}

class Directory {
 public:
  Directory() : path_(fs::temp_directory_path() / ("veltrano-" + canonicalName())) {
    fs::create_directories(path_);
  }
  ~Directory() { fs::remove_all(path_); }

  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

  std::string write(const std::string& name, std::string_view text) const {
    fs::create_directories((path_ / name).parent_path());
    std::ofstream(path_ / name) << text;
    return *this / name;
  }
  std::size_t fileCount() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(path_), {}));
  }

 private:
  static std::string canonicalName() {
    return std::to_string(getpid()) + testing::UnitTest::GetInstance()->current_test_info()->name();
  }
  const fs::path path_;
};

std::string contentsOf(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string propertyList(const std::string& entries) {
  return "<plist version=\"1.0\"><dict>" + entries + "</dict></plist>";
}

TEST(WorkQueueTest, ManySubmittersNeverOverlapNorOvertakeThemselves) {
  auto& queue = makeQueue();
  constexpr int kThreads = 4;
  constexpr int kBlocks = 3000;
  std::vector<int> last(kThreads, -1);  // touched by blocks alone, so races show
  int disorder = 0;
  std::vector<std::thread> submitters;
  for (int thread = 0; thread < kThreads; ++thread) {
    submitters.emplace_back([&, thread] {
      for (int i = 0; i < kBlocks; ++i) {
        queue.async(
            [&, thread, i] { disorder += std::exchange(last[thread], i) == i - 1 ? 0 : 1; });
      }
    });
  }
  for (auto& submitter : submitters) submitter.join();
  drain(queue);
  EXPECT_EQ(disorder, 0);
  EXPECT_EQ(last, std::vector<int>(kThreads, kBlocks - 1));
}

// A queue falls asleep after some 20 ms; the other one's delays make submissions meet it awake,
// just then, and asleep.
TEST(WorkQueueTest, NoWakeUpIsLost) {
  auto& sleeper = makeQueue();
  auto& waker = makeQueue();
  for (int round = 0; round < 40; ++round) {
    std::promise<void> ran;
    waker.asyncAfter(std::chrono::microseconds(15000 + 400 * round),
                     std::make_shared<WorkItem>([&] { sleeper.async([&] { ran.set_value(); }); }));
    ASSERT_EQ(ran.get_future().wait_for(seconds(20)), std::future_status::ready);
  }
  // An item that is due before the one the thread sleeps for.
  std::promise<void> ran;
  sleeper.asyncAfter(std::chrono::hours(1), std::make_shared<WorkItem>([] {}));
  waker.asyncAfter(milliseconds(40), std::make_shared<WorkItem>([&] {
                     sleeper.asyncAfter(milliseconds(1),
                                        std::make_shared<WorkItem>([&] { ran.set_value(); }));
                   }));
  ASSERT_EQ(ran.get_future().wait_for(seconds(20)), std::future_status::ready);
}

TEST(WorkQueueTest, RunsAndDestroysBlocksOnAThreadOfItsOwn) {
  auto& queue = makeQueue("a label that is too long");
  char name[16] = {};
  sigset_t blocked;
  pthread_t ranOn = pthread_self();
  pthread_t destroyedOn = pthread_self();
  const auto noteEnd = [&](void*) { destroyedOn = pthread_self(); };
  queue.async([&, witness = std::shared_ptr<void>(nullptr, noteEnd)] {
    pthread_getname_np(pthread_self(), name, sizeof name);
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    ranOn = pthread_self();
    throw std::runtime_error("to be dropped");
  });
  drain(queue);
  EXPECT_STREQ(name, "a label that is");
  EXPECT_TRUE(sigismember(&blocked, SIGTERM) && sigismember(&blocked, SIGPROF));
  EXPECT_FALSE(pthread_equal(ranOn, pthread_self()));
  EXPECT_TRUE(pthread_equal(ranOn, destroyedOn));
}

TEST(DelayedItemsTest, CancelledItemsDoNotPileUpAndEqualTimesKeepTheirOrder) {
  DelayedItems items;
  const DelayedItems::Clock::time_point start;
  std::vector<int> order;
  std::size_t givenBack = 0;
  for (int i = 0; i < 1000; ++i) {
    auto item = std::make_shared<WorkItem>([&order, i] { order.push_back(i); });
    if (i % 100 != 0) item->cancel();
    givenBack += items.add(start + seconds(1), std::move(item)).size();
    ASSERT_LE(items.size(), 40u);
  }
  EXPECT_GT(givenBack, 900u);
  EXPECT_TRUE(items.takeDue(start + milliseconds(999)).empty());
  for (const auto& item : items.takeDue(start + seconds(1))) item->run();
  EXPECT_EQ(order, (std::vector<int>{0, 100, 200, 300, 400, 500, 600, 700, 800, 900}));
}

TEST(RunLoopTest, FunctionsFromOtherThreadsRunOnItsThreadUntilItIsStopped) {
  RunLoop& loop = RunLoop::current();
  std::vector<int> order;
  std::thread([&] {
    loop.run();  // not its thread: returns
    for (int i = 0; i < 3; ++i) loop.perform([&, i] { order.push_back(i); });
    loop.perform([] { throw std::runtime_error("to be dropped"); });
    loop.perform([&] { loop.stop(); });
    loop.perform([&] { order.push_back(3); });
  }).join();
  EXPECT_TRUE(order.empty());
  loop.run();
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2}));
  loop.stop();
  EXPECT_TRUE(loop.runUntil(Clock::now() + seconds(30)));  // stopped beforehand
  EXPECT_FALSE(loop.runUntil(Clock::now()));
  EXPECT_EQ(order.size(), 4u);
}

TEST(RunLoopTest, AHostsOwnLoopCanDriveIt) {
  RunLoop& loop = RunLoop::current();
  pollfd ready{loop.fileDescriptor(), POLLIN, 0};
  ASSERT_GE(ready.fd, 0);
  EXPECT_EQ(poll(&ready, 1, 0), 0);

  std::vector<std::string> order;
  PosixTimers timers;
  const auto due = Clock::now() + milliseconds(10);
  bool isEarly = true;
  timers.schedule(milliseconds(10), milliseconds(5), [&] {
    isEarly = Clock::now() < due;
    order.push_back("timer");
  });
  timers.schedule(Duration::max(), Duration(0), [&] { order.push_back("never"); });
  std::thread([&] {
    loop.perform([&] {
      order.push_back("function");
      loop.perform([&] { order.push_back("function of a function"); });
    });
  }).join();
  while (order.size() < 3) {
    ASSERT_EQ(poll(&ready, 1, 30000), 1);
    loop.runDue();
  }
  EXPECT_EQ(order, (std::vector<std::string>{"function", "function of a function", "timer"}));
  EXPECT_FALSE(isEarly);
  EXPECT_EQ(poll(&ready, 1, 0), 0);
}

TEST(RunLoopTest, AThreadThatEndsTakesItsTimersAlong) {
  auto held = std::make_shared<int>();
  std::shared_ptr<Timer> timer;
  std::thread([&] { timer = PosixTimers().schedule(seconds(0), seconds(0), [held] {}); }).join();
  EXPECT_EQ(held.use_count(), 1);
  timer->invalidate();
}

TEST(UserDefaultsTest, SurviveInAFileWhoseOtherEntriesStay) {
  const Directory directory;
  const auto path = directory.write(
      "d.plist", propertyList("<key>n</key><integer>-90</integer><key>s</key><string>x</string>"
                              "<key>r</key><real>1.5</real>"));
  chmod(path.c_str(), 0640);
  {
    PosixUserDefaults defaults(path);
    EXPECT_EQ(defaults.doubleForKey("n"), -90);
    EXPECT_EQ(defaults.doubleForKey("s"), 0);
    defaults.setDouble(0.1 + 0.2, "n");
    defaults.setDouble(HUGE_VAL, "i");
  }
  PosixUserDefaults defaults(path);
  EXPECT_EQ(defaults.doubleForKey("n"), 0.1 + 0.2);
  EXPECT_EQ(defaults.doubleForKey("i"), HUGE_VAL);
  EXPECT_EQ(defaults.doubleForKey("r"), 1.5);
  EXPECT_NE(contentsOf(path).find("<string>x</string>"), std::string::npos);
  EXPECT_EQ(directory.fileCount(), 1u);  // no temporary file stays behind
  struct stat status;
  stat(path.c_str(), &status);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
}

TEST(UserDefaultsTest, ConcurrentWritersLeaveTheLastValue) {
  const Directory directory;
  PosixUserDefaults defaults(directory / "d.plist");
  std::vector<std::thread> writers;
  for (int writer = 0; writer < 4; ++writer) {
    writers.emplace_back([&, writer] {
      for (int i = 1; i <= 20; ++i) defaults.setDouble(i, std::to_string(writer));
    });
  }
  for (auto& writer : writers) writer.join();
  PosixUserDefaults read(directory / "d.plist");
  for (int writer = 0; writer < 4; ++writer)
    EXPECT_EQ(read.doubleForKey(std::to_string(writer)), 20);
}

TEST(UserDefaultsTest, ADamagedFileIsSetAside) {
  const Directory directory;
  int number = 0;
  std::string deep = "<plist><dict><key>n</key>";
  for (int i = 0; i < 200'000; ++i) deep += "<array>";
  for (const std::string& text :
       {std::string(), std::string("<plist><dict><key>n</k"), std::string("bplist00\x01\x02"),
        std::string("no list"), std::string("<plist><array><real>1</real></array></plist>"),
        deep}) {
    const std::string name = std::to_string(number++);
    const auto path = directory.write(name, text);
    PosixUserDefaults defaults(path);
    EXPECT_EQ(defaults.doubleForKey("n"), 0) << text;
    EXPECT_EQ(contentsOf(path + ".damaged"), text);
    defaults.setDouble(7, "n");
    EXPECT_EQ(PosixUserDefaults(path).doubleForKey("n"), 7) << text;
  }
}

TEST(UserDefaultsTest, WithoutAUsableFileValuesStayInMemory) {
  const Directory directory;
  fs::create_directory(directory / "directory");
  for (const std::string& path :
       {std::string(), directory / "missing/d.plist", directory / "directory"}) {
    PosixUserDefaults defaults(path);
    defaults.setDouble(7, "n");
    EXPECT_EQ(defaults.doubleForKey("n"), 7) << path;
  }
  EXPECT_EQ(directory.fileCount(), 1u);
}

TEST(BundlesTest, InfoDictionariesKeepTheirTypes) {
  const Directory directory;
  directory.write("App/Info.plist",
                  propertyList("<key>s</key><string>2.3 \xC3\xA9</string><key>i</key><integer>-5"
                               "</integer><key>r</key><real>0.5</real><key>t</key><true/>"
                               "<key>d</key><date>2023-11-14T22:13:20Z</date><key>a</key><array>"
                               "<string>x</string><dict><key>k</key><false/></dict></array>"
                               "<key>b</key><data>AAEC</data>"));
  const PosixBundles bundles(std::nullopt);
  EXPECT_FALSE(bundles.mainInfoDictionary());
  EXPECT_FALSE(bundles.bundleAtPath(directory / "None"));
  EXPECT_FALSE(bundles.bundleAtPath(directory / "App/Info.plist"));
  const auto bundle = bundles.bundleAtPath(directory / "App");
  ASSERT_TRUE(bundle && bundle->infoDictionary);
  std::map<std::string, HostValue> info;
  for (const auto& entry : *bundle->infoDictionary) info[entry.key] = entry.value;

  ASSERT_EQ(info.size(), 7u);
  EXPECT_EQ(*info["s"].member()->getIf<std::string>(), "2.3 \xC3\xA9");
  EXPECT_EQ(*info["i"].member()->getIf<std::int64_t>(), -5);
  EXPECT_EQ(*info["r"].member()->getIf<double>(), 0.5);
  EXPECT_EQ(*info["t"].member()->getIf<bool>(), true);
  EXPECT_EQ(info["d"].member()->getIf<Date>()->iso8601(), "2023-11-14T22:13:20.000Z");
  const auto& array = *info["a"].member()->getIf<Array>();
  ASSERT_EQ(array.size(), 2u);
  const auto& dictionary = *array.begin()[1].member()->getIf<Dictionary>();
  EXPECT_EQ(*dictionary.begin()->value.member()->getIf<bool>(), false);
  EXPECT_NE(info["b"].otherObject(), nullptr);
}

TEST(BundlesTest, TheLibraryFindsItsResources) {
  const PosixBundles bundles(std::nullopt);
  const Bundle library = bundles.libraryBundle();
  ASSERT_TRUE(library.resourceDirectory);
  const auto resources = bundles.bundleAtPath(*library.resourceDirectory + "/Veltrano.bundle");
  ASSERT_TRUE(resources && resources->infoDictionary);
  EXPECT_EQ(resources->infoDictionary->begin()->key, "CFBundleShortVersionString");
}

TEST(ConnectivityTest, TheDefaultRouteWithTheLeastMetricCounts) {
  const std::string header = "Iface\tDestination\tGateway\tFlags\tRefCnt\tUse\tMetric\tMask\tMTU\n";
  const std::string lan = "eth0\t0002000A\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n";
  const std::string slow = "wlan0\t00000000\t010200C0\t0003\t0\t0\t600\t00000000\t0\t0\t0  \n";
  const std::string fast = "eth0\t00000000\t010200C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n";
  const std::string down = "ppp0\t00000000\t010200C0\t0002\t0\t0\t0\t00000000\t0\t0\t0\n";
  const std::string zeros(32, '0');
  const std::string v6 = " 00 " + zeros + " 00 fe800000000000000000000000000001 ";
  const std::string sixth = zeros + v6 + "00000400 00000001 00000000 00000003    wlan1\n";
  const std::string faster = zeros + v6 + "000000ff 00000001 00000000 00000003    wlan2\n";
  const std::string reject = zeros + v6 + "00000001 00000001 00000000 00200200       lo\n";
  EXPECT_EQ(defaultRouteInterface(header + lan + slow, sixth), "wlan0");
  EXPECT_EQ(defaultRouteInterface(header + slow + fast + down, sixth), "eth0");
  EXPECT_EQ(defaultRouteInterface(header + lan + down, reject + sixth + faster), "wlan2");
  EXPECT_EQ(defaultRouteInterface(header + lan, reject), "");
  EXPECT_EQ(defaultRouteInterface("wlan0\t00000000\n\n\xFF\t", "garbage"), "");

  const Directory sys;
  sys.write("class/net/eth0/address", "");
  sys.write("class/net/wlan0/wireless/status", "");
  sys.write("class/net/wlan1/phy80211/name", "");
  for (const char* wireless : {"wlan0", "wlan1"}) EXPECT_TRUE(isWireless(wireless, sys / ""));
  for (const char* wired : {"eth0", "", "none"}) EXPECT_FALSE(isWireless(wired, sys / ""));
}

TEST(OptionsTest, CollectionHostsAndIdentifiersAreChecked) {
  for (const char* good : {"example.com", "localhost", "10.0.0.1:8443", "a-b.c_d.example:1",
                           "[::1]", "[2001:db8::1]:65535"})
    EXPECT_TRUE(isCollectionHost(good)) << good;
  for (const char* bad : {"",
                          " ",
                          "https://example.com",
                          "example.com/",
                          "exa mple.com",
                          ":80",
                          "example.com:",
                          "example.com:0",
                          "example.com:65536",
                          "example.com:80x",
                          "example.com:+80",
                          "::1",
                          "[::1",
                          "[::1]80",
                          "[example.com]",
                          "user@example.com",
                          ".example.com",
                          "a..b",
                          "a\nb",
                          "-a",
                          "a?b"})
    EXPECT_FALSE(isCollectionHost(bad)) << bad;

  EXPECT_EQ(canonicalUUID("6d92078a-8246-4ba4-ae5b-76104861e7dc"),
            "6D92078A-8246-4BA4-AE5B-76104861E7DC");
  for (const char* bad :
       {"", "6d92078a82464ba4ae5b76104861e7dc", "6d92078a-8246-4ba4-ae5b-76104861e7dg",
        "6d92078a-8246-4ba4-ae5b-76104861e7dc0"})
    EXPECT_FALSE(canonicalUUID(bad)) << bad;
}

TEST(StandardOutputTest, WritesWholeLines) {
  testing::internal::CaptureStdout();
  PosixStandardOutput output({});
  std::vector<std::thread> writers;
  for (int i = 0; i < 4; ++i) {
    writers.emplace_back([&] {
      for (int line = 0; line < 100; ++line) output.writeLine(std::string_view("a\0b", 3));
    });
  }
  for (auto& writer : writers) writer.join();
  std::string expected;
  for (int line = 0; line < 400; ++line) expected += std::string_view("a\0b\n", 4);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);

  PosixStandardOutput sink([](std::string_view) { throw std::runtime_error("to be dropped"); });
  sink.writeLine("line");
}

// Installs the platform, so it needs a process of its own.
TEST(PosixPlatformTest, TellsTheLibraryWhatTheHostTellsIt) {
  PosixOptions options;
  EXPECT_FALSE(PosixPlatform::install(options));
  options.collectionHost = "https://example.com";
  EXPECT_NE(PosixPlatform::install(options).error.find("https://example.com"), std::string::npos);
  options.collectionHost = "example.com";
  options.advertisingIdentifier = "nobody";
  EXPECT_FALSE(PosixPlatform::install(options));

  options.advertisingIdentifier.reset();
  options.applicationState = PosixOptions::ApplicationState::background;
  options.screenWidth = 414.5;
  options.screenHeight = 896;
  options.systemVersion = "17.0";
  options.infoDictionary = HostMap{{"CFBundleVersion", "45"}};
  bool hasToken = true;
  options.sessionToken = [&]() -> std::optional<std::string> {
    if (!hasToken) throw std::runtime_error("to be dropped");
    return "token";
  };
  const auto installation = PosixPlatform::install(options);
  ASSERT_TRUE(installation) << installation.error;
  EXPECT_FALSE(PosixPlatform::install(options));

  const Platform& services = platform();
  EXPECT_EQ(services.device.mainScreenSize().width, 414.5);
  EXPECT_EQ(services.device.mainScreenSize().height, 896);
  EXPECT_EQ(services.device.systemVersion(), "17.0");
  EXPECT_FALSE(services.device.systemName().empty());
  EXPECT_EQ(services.bundles.mainInfoDictionary()->begin()->key, "CFBundleVersion");
  EXPECT_EQ(services.sessionTokenProvider.sessionToken(), "token");
  hasToken = false;
  EXPECT_EQ(services.sessionTokenProvider.sessionToken(), std::nullopt);
  EXPECT_EQ(services.telephony.carrierName(), std::nullopt);
  installation.platform->setCarrierName("Carrier");
  EXPECT_EQ(services.telephony.carrierName(), "Carrier");

  // Each observer sees the new state, on the main thread, whichever thread reported it.
  std::vector<std::string> seen;
  const auto observe = [&](std::string_view name) {
    services.notificationCenter.addObserver(name, [&, name, main = std::this_thread::get_id()] {
      EXPECT_EQ(std::this_thread::get_id(), main);
      seen.push_back(std::string(name.substr(0, name.find("Notification"))) + " " +
                     std::to_string(static_cast<int>(services.application.state())) + " " +
                     std::to_string(services.application.interfaceOrientation()) + " " +
                     std::to_string(services.device.orientation()));
    });
  };
  for (const auto name : {kApplicationDidBecomeActive, kApplicationDidEnterBackground,
                          kApplicationWillEnterForeground, kDeviceOrientationDidChange,
                          kApplicationDidChangeStatusBarOrientation})
    observe(name);
  installation.platform->applicationWillEnterForeground();
  installation.platform->applicationDidBecomeActive();
  EXPECT_EQ(seen.size(), 2u);
  std::thread([&] {
    installation.platform->setInterfaceOrientation(3);
    installation.platform->setDeviceOrientation(4);
    installation.platform->applicationWillResignActive();
    installation.platform->applicationDidEnterBackground();
    installation.platform->mainRunLoop().perform(
        [&] { installation.platform->mainRunLoop().stop(); });
  }).join();
  EXPECT_EQ(seen.size(), 2u);
  // A report on the main thread does not overtake them.
  installation.platform->applicationWillEnterForeground();
  EXPECT_EQ(seen.size(), 6u);
  installation.platform->mainRunLoop().run();
  EXPECT_EQ(
      seen,
      (std::vector<std::string>{
          "UIApplicationWillEnterForeground 1 0 0", "UIApplicationDidBecomeActive 0 0 0",
          "UIApplicationDidChangeStatusBarOrientation 0 3 0", "UIDeviceOrientationDidChange 0 3 4",
          "UIApplicationDidEnterBackground 2 3 4", "UIApplicationWillEnterForeground 1 3 4"}));
}

TEST(PosixPlatformTest, IsRefusedOnceTheLibraryIsInUse) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        platform();
        PosixOptions options;
        options.collectionHost = "example.com";
        _exit(PosixPlatform::install(options).error.find("in use") != std::string::npos ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

// Forks while other threads hold the services' locks most of the time.
TEST(ForkTest, AChildIsInert) {
  watchForks();
  auto& queue = makeQueue();
  PosixTimers timers;
  PosixNotificationCenter center;
  PosixUserDefaults defaults("");
  PosixIdentifiers identifiers;
  RunLoop& loop = RunLoop::current();
  const std::vector<std::function<void()>> uses{
      [&] { queue.asyncAfter(seconds(1), std::make_shared<WorkItem>([] {})); },
      [&] { queue.async([] {}); },
      [&] { center.addObserver("name", [] {}); },
      [&] { defaults.setDouble(defaults.doubleForKey("key") + 1, "key"); },
      [&] { identifiers.setAdvertisingIdentifier(identifiers.advertisingIdentifier()); },
      [&] { loop.perform([] {}); },
  };
  identifiers.setAdvertisingIdentifier("6d92078a-8246-4ba4-ae5b-76104861e7dc");
  drain(queue);
  std::atomic<bool> isOver{false};
  std::vector<std::thread> users;
  for (const auto& use : uses) {
    users.emplace_back([&] {
      for (int i = 0; !isOver && i < 200000; ++i) use();
    });
  }
  for (int i = 0; i < 20; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      for (const auto& use : uses) use();
      int ran = 0;
      queue.async([&ran] { ++ran; });
      const auto timer = timers.schedule(seconds(0), seconds(0), [&ran] { ++ran; });
      timer->invalidate();
      center.post("name");
      loop.run();
      loop.runDue();
      _exit(isForkedChild() && ran == 0 && loop.fileDescriptor() == -1 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }
  isOver = true;
  for (auto& user : users) user.join();
  EXPECT_FALSE(isForkedChild());
  drain(queue);
}

}  // namespace
}  // namespace veltrano

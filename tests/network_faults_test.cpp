// Faults around the transfers: no threads, descriptors or memory, host code that blocks, and the
// end of the session.
#include <gtest/gtest.h>
#include <net/if.h>
#include <net/route.h>
#include <pthread.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <semaphore>
#include <set>
#include <thread>

#include "tests/support/directory.h"
#include "tests/support/failures.h"
#include "tests/support/posting.h"

namespace veltrano::internal {
namespace {

using namespace std::chrono_literals;

// The names of the library's threads, once they are as many as `expected`.
std::multiset<std::string> threads(std::size_t expected) {
  std::multiset<std::string> names;
  for (const auto end = std::chrono::steady_clock::now() + 30s;; std::this_thread::yield()) {
    names.clear();
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
      std::string name;
      std::getline(std::ifstream(task.path() / "comm"), name);
      if (name.starts_with("veltrano")) names.insert(name);
    }
    if (VELTRANO_PORTABLE || names.size() == expected) return names;
    if (std::chrono::steady_clock::now() > end) break;
  }
  ADD_FAILURE() << "not " << expected << ": " << testing::PrintToString(names);
  return names;
}

TEST(NetworkFaults, WithoutMoreThreadsPostsAreSentAndReportedByTheTwoThatExist) {
  TLSServer server(accept, {.certificate = {.name = "DNS:localhost"}});
  PosixURLSession session(trusting(server.authorities()));
  failures::hasNoThreads = true;
  EXPECT_THROW(PosixURLSession{URLSessionOptions{}}, std::system_error);
  auto request = requestTo(server.url("/a", "localhost"));
  request.interceptor = interceptor([](URLRequest&) {});
  for (int i = 0; i < 2; ++i) {
    const auto outcome = post(session, request);
    EXPECT_EQ(outcome.status(), 200);
    EXPECT_NE(outcome.calledOn, std::this_thread::get_id());
  }
  // Nor can one be replaced. Then nothing is left but to call back at once.
  session.postData(request, [](auto, auto, auto) { pthread_exit(nullptr); });
  threads(1);
  EXPECT_TRUE(post(session, request).isTransportError() || VELTRANO_PORTABLE);
  failures::hasNoThreads = false;
  EXPECT_EQ(post(session, request).status(), 200);
}

TEST(NetworkFaults, WithoutDescriptorsPostsEndAndLaterOnesSucceed) {
#ifdef VELTRANO_SANITIZED
  GTEST_SKIP() << "Sanitizers need descriptors themselves.";
#endif
  TLSServer server(accept);
  auto options = trusting(server.authorities());
  options.attemptTimeout = 5s;  // the server runs out of descriptors, too
  for (const bool isTableShared : {false, true}) {
    failures::hasOneDescriptorTable = isTableShared;
    PosixURLSession session(options);
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const int lowest = dup(0);
    close(lowest);
    const rlimit none{static_cast<rlim_t>(lowest), before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_TRUE(post(session, requestTo(server.url())).isTransportError());
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(post(session, requestTo(server.url())).status(), 200);
  }
  failures::hasOneDescriptorTable = false;
}

// The descriptor numbers that a program executed by the host sees.
std::string inheritedDescriptors() {
  const Directory directory;
  EXPECT_EQ(std::system(("ls /proc/self/fd >" + directory / "list").c_str()), 0);
  return contentsOf(directory / "list");
}

TEST(NetworkFaults, DescriptorsAreNeitherInheritedNorKept) {
#ifdef VELTRANO_SANITIZED
  GTEST_SKIP() << "Sanitizers know one descriptor table only.";
#endif
  if (VELTRANO_PORTABLE) GTEST_SKIP() << "POSIX knows one descriptor table only.";
  std::binary_semaphore hasCome(0);
  TLSServer server([&](int) {
    hasCome.release();
    return TLSReply{};
  });
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const std::string before = inheritedDescriptors();
  PosixURLSession session(trusting(server.authorities()));
  const auto hanging = start(session, requestTo(server.url()));
  hasCome.acquire();
  EXPECT_EQ(inheritedDescriptors(), before);
  close(ends[1]);
  char byte = 0;
  EXPECT_EQ(read(ends[0], &byte, 1), 0);
  close(ends[0]);
}

TEST(NetworkFaults, ALookupThatIsStuckKeepsOneThreadAndNoPost) {
  TLSServer server(accept, {.certificate = {.name = "DNS:" + failures::kStuckName}});
  TLSServer other(accept);
  auto options = trusting(server.authorities());
  options.connectTimeout = 1s;
  std::atomic<bool> isLogging{false};
  std::promise<void> isBlocked, release;
  PosixURLSession session(options);
  auto request = requestTo(server.url("/", failures::kStuckName));
  request.maxRetries = 0;
  request.callsHost = &isLogging;
  failures::areLookupsStuck = true;
  auto quiet = start(session, request);
  while (failures::stuckLookups == 0) std::this_thread::yield();
  auto heartbeat = requestTo(other.url("/heartbeat"));
  heartbeat.interceptor = interceptor([](URLRequest&) {});
  EXPECT_TRUE(post(session, heartbeat).error) << "not its certificate";
  threads(3);  // one is free again
  heartbeat.interceptor = nullptr;
  session.postData(heartbeat, [&](auto, auto, const auto& error) {
    EXPECT_TRUE(error);
    isBlocked.set_value();
    release.get_future().wait();
  });
  isBlocked.get_future().wait();
  EXPECT_TRUE(quiet.get().isTransportError());
  EXPECT_EQ(threads(3).count("veltrano.lookup"), VELTRANO_PORTABLE ? 0U : 1U);
  isLogging = true;  // which may block, too
  EXPECT_TRUE(post(session, request).isTransportError());
  threads(4);
  release.set_value();
  failures::areLookupsStuck = false;
  failures::areLookupsStuck.notify_all();
  request.interceptor = interceptor([&](URLRequest&) { isLogging = true; });
  Outcome outcome;
  for (; outcome.status() != 200; outcome = post(session, request)) isLogging = false;
  EXPECT_TRUE(outcome.mayCallHost) << "and write to the log";
  threads(2);
  EXPECT_EQ(failures::stuckLookups.exchange(0), 1) << "asked again meanwhile";
}

TEST(NetworkFaults, CodeOfTheHostThatBlocksHoldsUpNothingElse) {
  TLSServer server(accept);
  const auto upload = requestTo(server.url());
  auto heartbeat = requestTo(server.url("/heartbeat"));
  auto options = trusting(server.authorities());
  std::atomic<PosixURLSession*> used{nullptr};
  options.onTransfer = [&](const TransferReport& report) {
    if (used != nullptr && report.path == heartbeat.path()) post(*used, upload);
  };
  PosixURLSession session(options);
  EXPECT_EQ(post(session, upload).status(), 200);  // connects

  // A callback that waits for another upload, and until the next heartbeat is sent. Whichever
  // thread it is on has the host's descriptors.
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  heartbeat.interceptor = interceptor([&](URLRequest&) { EXPECT_EQ(write(ends[1], "", 1), 1); });
  std::promise<int> status;
  session.postData(heartbeat, [&](auto, auto, auto) {
    session.postData(heartbeat, [&](auto, auto, auto) { EXPECT_EQ(write(ends[1], "", 1), 1); });
    while (server.requests().size() < 3) std::this_thread::yield();
    status.set_value(post(session, upload).status());
  });
  EXPECT_EQ(status.get_future().get(), 200);

  // A token and a report that wait for an upload.
  heartbeat.interceptor =
      interceptor([&](URLRequest&) { EXPECT_EQ(post(session, upload).status(), 200); });
  used = &session;
  EXPECT_EQ(post(session, heartbeat).status(), 200);
  threads(2);
  for (const int end : ends) close(end);
}

TEST(NetworkFaults, ARequestWhoseTimeIsUpCallsNoInterceptor) {
  TLSServer server(accept);
  auto options = trusting(server.authorities());
  options.requestTimeout = 200ms;
  std::promise<void> release;
  std::atomic<int> calls{0};
  std::atomic<bool> isPast{false};
  PosixURLSession session(options);
  auto request = requestTo(server.url());
  request.interceptor = interceptor([&, released = release.get_future().share()](URLRequest&) {
    ++calls;
    released.wait();
  });
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(post(session, request).isTransportError());
  release.set_value();
  request.interceptor = interceptor([&](URLRequest&) { isPast = true; });
  while (!isPast) post(session, request);
  EXPECT_LE(calls, 1);
}

// Takes the network away and returns it, in a network namespace of its own. Returns 0; 77 without
// the permission.
int restUntilARouteReturns() {
  if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return 77;
  const int control = socket(AF_INET, SOCK_DGRAM, 0);
  const auto setLoopback = [&](short flags) {
    ifreq loopback{{"lo"}, {}};
    loopback.ifr_flags = flags;
    return ioctl(control, SIOCSIFFLAGS, &loopback) == 0;
  };
  if (!setLoopback(IFF_UP)) return 1;
  TLSServer server(accept);
  auto options = trusting(server.authorities());
  options.connectTimeout = 500ms;
  PosixURLSession session(options);
  auto upload = requestTo(server.url());
  if (!setLoopback(0)) return 2;
  upload.maxRetries = 0;
  upload.urgency = Urgency::enteringBackground;
  for (int i = 0; i < 9; ++i)
    if (!post(session, upload).isTransportError()) return 3;
  upload.urgency = Urgency::ordinary;
  const auto rest = session.restOf(EndpointPath::track);
  if (!rest || rest->left < 60s || !post(session, upload).error->wasPutOff) return 4;
  rtentry defaultRoute{};
  defaultRoute.rt_dst.sa_family = defaultRoute.rt_genmask.sa_family = AF_INET;
  defaultRoute.rt_flags = RTF_UP;
  char name[] = "lo";
  defaultRoute.rt_dev = name;
  // A link alone does not end a rest.
  if (!setLoopback(IFF_UP) || !post(session, upload).error->wasPutOff) return 5;
  if (ioctl(control, SIOCADDRT, &defaultRoute) != 0) return 6;
  while (session.restOf(EndpointPath::track)) std::this_thread::yield();
  upload.urgency = Urgency::enteringBackground;
  while (post(session, upload).status() != 200) {
  }
  return 0;
}

TEST(NetworkFaults, InAForkARouteThatReturnsEndsARest) {
  if (VELTRANO_PORTABLE) GTEST_SKIP() << "POSIX reports no changes of routes.";
  int status = -1;
  const auto hasEnded = [&](int its) { return (status = its) == 0 || its == 77 << 8; };
  EXPECT_EXIT((alarm(60), _exit(restUntilARouteReturns())), hasEnded, "");
  // The thread sanitizer's own thread does not let the child have one.
  if (status == 77 << 8) GTEST_SKIP() << "No network namespace can be made.";
}

TEST(NetworkFaults, HangingHeartbeatsDoNotHoldUpAnUpload) {
  TLSServer server([](int number) { return number == 2 ? TLSReply{} : answer("200 OK"); });
  PosixURLSession session(trusting(server.authorities()));
  EXPECT_EQ(post(session, requestTo(server.url())).status(), 200);
  const auto heartbeat = requestTo(server.url("/heartbeat"));
  std::vector<std::future<Outcome>> heartbeats;
  for (int i = 0; i < 300; ++i) heartbeats.push_back(start(session, heartbeat));
  while (server.requests().size() < 2) std::this_thread::yield();
  EXPECT_TRUE(heartbeats.back().get().isTransportError()) << "more are waiting than shall";
  EXPECT_EQ(heartbeats.front().wait_for(0s), std::future_status::timeout);
  EXPECT_EQ(post(session, requestTo(server.url())).status(), 200);
}

TEST(NetworkFaults, EveryPostIsReportedOnceWhicheverAllocationFails) {
  if (VELTRANO_PORTABLE) GTEST_SKIP() << "The library's threads are recognised by their names.";
  TLSServer server([](int) { return answer("503 Busy", "{}", "Retry-After: 0\r\n"); },
                   {.certificate = {.name = "DNS:localhost"}});
  for (const int failing : {1, 3}) {
    int first = 0;
    for (bool hasFailed = true; hasFailed; ++first) {
      std::atomic<int> calls{0};
      std::binary_semaphore isOver(0);
      std::optional<PosixURLSession> session(trusting(server.authorities()));
      auto request = requestTo(server.url("/a", "localhost"));
      request.headerParameters = {{"a header that is longer than a short string", "value"}};
      request.interceptor = interceptor([](URLRequest& r) { r.headers["token"] = "t"; });
      request.maxRetries = 1;
      request.dontRetryStatusCodesSet = {{504}};
      URLSessionCallback callback = [&, padding = std::array<char, 100>()](auto, auto response,
                                                                           auto error) {
        EXPECT_TRUE(response || error) << padding[0];
        EXPECT_FALSE(failures::isLibrarys) << "called back by postData";
        ++calls;
        isOver.release();
      };
      failures::runWithout(first, failing,
                           [&] { session->postData(std::move(request), std::move(callback)); });
      isOver.acquire();
      hasFailed = failures::stopFailing();
      session.reset();  // after this, no second outcome can come
      EXPECT_EQ(calls, 1) << first << " of " << failing;
      EXPECT_TRUE(hasFailed || server.requests().size() >= 2) << first;
    }
    EXPECT_GT(first, 100) << "not every allocation was seen";
  }
}

TEST(NetworkFaults, ShuttingDownLetsPostsFinishAndThenIsSilent) {
  std::binary_semaphore isReleased(0);
  TLSServer server([&](int number) {
    if (number == 1) isReleased.acquire();
    return answer("200 OK");
  });
  PosixURLSession session(trusting(server.authorities()));
  auto underWay = start(session, requestTo(server.url()));
  while (server.requests().empty()) std::this_thread::yield();
  auto ended = std::async(std::launch::async,
                          [&] { return session.shutDown(std::chrono::steady_clock::now() + 30s); });
  while (!post(session, requestTo(server.url("/heartbeat"))).error) {  // not yet shutting down
  }
  isReleased.release();
  EXPECT_TRUE(ended.get());
  EXPECT_EQ(underWay.get().status(), 200);
  session.postData(requestTo(server.url()), [](auto, auto, auto) { ADD_FAILURE(); });
}

TEST(NetworkFaults, ShuttingDownGivesUpWhatCouldBeTriedAgain) {
  TLSServer proxy([](int) { return TLSReply{}; }, {.asProxy = TLSReply{}});
  auto options = trusting(proxy.authorities());
  options.proxy = "http://127.0.0.1:" + std::to_string(proxy.port());
  PosixURLSession session(options);
  auto underWay = start(session, requestTo("https://collector.invalid/track"));
  while (proxy.requests().empty()) std::this_thread::yield();
  for (int i = 0; i < 2; ++i) EXPECT_FALSE(session.shutDown(std::chrono::steady_clock::now())) << i;
  EXPECT_EQ(underWay.wait_for(30s), std::future_status::ready) << "not given up";
}

}  // namespace
}  // namespace veltrano::internal

// A host that brings the library into a state and then ends: ending_host STATE ENDING HOST
// CERTIFICATE. A byte on its standard input means that its request has arrived. It writes the time
// to the standard output just before it ends.
#include <dlfcn.h>
#include <netdb.h>
#include <openssl/ssl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "veltrano/posix_platform.h"
#include "veltrano/veltrano.h"

namespace {

constexpr int kStatus = 7;

std::atomic<bool> isChild{false};
std::string state;
std::string ending;
veltrano::RunLoop* mainLoop = nullptr;

void useLibrary() {
  auto& tracker = Veltrano::shared();
  tracker.setUserId("late");
  tracker.setSuperProperties({{"late", true}});
  tracker.track("late", {{"a", 1}}, [](bool) {});
  tracker.getScreenOrientation();
}

// Older than the installation: the library's threads may use it until it is destroyed.
bool isGone = false;
void useObjects() {
  if (isGone) _exit(9);
}

struct StaticObject {
  ~StaticObject() {
    if (ending == "destructor" || ending == "fork") useLibrary();
    isGone = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(state == "callingBack" ? 50 : 0));
  }
} const staticObject;

void noteTheEnd() {
  const auto now = std::chrono::steady_clock::now();
  if (write(STDOUT_FILENO, &now, sizeof now) != sizeof now) abort();
}

void keepPosting() {
  useObjects();
  mainLoop->perform(keepPosting);
}

// Called by the host's code when the state is reached.
[[noreturn]] void stay() {
  if (ending == "thread") {
    noteTheEnd();
    exit(kStatus);
  }
  mainLoop->stop();
  for (;;) pause();
}

// Uses the library in a child. Nothing is called back, not even by run loops.
void useInChild() {
  int calls = 0;
  auto& tracker = Veltrano::shared();
  tracker.setRefreshTriggersWithHandler({{"late"}}, [&] { ++calls; });
  useLibrary();
  mainLoop->perform([&] { ++calls; });
  mainLoop->runDue();
  mainLoop->run();
  if (tracker.getScreenOrientation() != "unknown" || calls > 0 ||
      mainLoop->fileDescriptor() != -1 ||
      Veltrano::status().find("was forked") == std::string::npos)
    _exit(1);
}

bool isForkHarmless() {
  for (int i = 0; i < (state == "tracking" ? 30 : 2); ++i) {
    const pid_t child = fork();
    if (child == 0) {
      isChild = true;
      alarm(20);
      useInChild();
      if (i % 2 == 1) execl("/bin/true", "true", nullptr);
      exit(0);
    }
    int status = -1;
    if (waitpid(child, &status, 0) != child || status != 0) return false;
  }
  useLibrary();
  return true;
}

int end() {
  if (ending == "fork" && !isForkHarmless()) return 1;
  if (ending == "thread") std::thread([] { noteTheEnd(), exit(kStatus); }).join();
  if (ending == "main thread") {
    std::thread([main = pthread_self()] {
      pthread_join(main, nullptr);
      if (state == "idle") {
        std::promise<bool> wasDelivered;
        Veltrano::shared().track("E", {}, [&](bool result) { wasDelivered.set_value(result); });
        if (!wasDelivered.get_future().get()) _exit(1);
      }
      noteTheEnd();
      exit(kStatus);
    }).detach();
    pthread_exit(nullptr);
  }
  noteTheEnd();
  if (ending == "exit") exit(kStatus);
  if (ending == "_exit") _exit(kStatus);
  if (ending == "quick_exit") quick_exit(kStatus);
  if (ending == "signal") kill(getpid(), SIGTERM);
  return kStatus;
}

void reach() {
  auto& tracker = Veltrano::shared();
  const auto stop = [](bool) { mainLoop->stop(); };
  if (state == "idle") {
    tracker.track("E", {}, stop);
  } else if (state == "inCompletion") {
    tracker.track("E", {}, [](bool) { stay(); });
  } else if (state == "inRefreshHandler") {
    tracker.setRefreshTriggersWithHandler({{"E"}}, [] { stay(); });
    std::thread([&] { tracker.track("E"); }).detach();
  } else if (state == "tracking") {
    static std::atomic<int> calls{0};
    for (int i = 0; i < 16; ++i)
      std::thread([&tracker] {
        for (;; ++calls) {
          tracker.setRefreshTriggersWithHandler({{"none"}}, [] {});
          tracker.track("E", {{"a", 1}, {"b", "text"}});
          mainLoop->perform([] {});  // whose lock another thread may hold when a host forks
          std::this_thread::sleep_for(
              std::chrono::microseconds(100));  // leaves a processor to the exit
        }
      }).detach();
    while (calls < 1000) std::this_thread::yield();
    stop(true);
  } else if (state == "callingBack") {
    const auto witness = [] { return std::shared_ptr<void>(nullptr, [](void*) { useObjects(); }); };
    for (int i = 0; i < 500; ++i)
      tracker.track("E", {}, [witness = witness()](bool) { useObjects(); });
    if (ending != "thread") return stop(true);
    mainLoop->perform(keepPosting);  // while another thread exits
    std::thread([] { noteTheEnd(), exit(kStatus); }).detach();
  } else if (state == "heartbeat" || state == "inTokenFunction") {
    tracker.setUserId("user");
  } else {
    tracker.track("E", {}, [](bool) {});
  }
}

}  // namespace

// Interposes the C library's function.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* host,
                                                                  const char* port,
                                                                  const addrinfo* hints,
                                                                  addrinfo** found) {
  if (state == "resolving") stay();
  const auto original = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
  return original(host, port, hints, found);
}

// LeakSanitizer's question whether to skip its search. In a child, the stacks of the parent's
// threads are gone, so whatever only they refer to looks leaked. The same holds for the
// thread-local objects of a main thread that ends alone.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off() {
  return isChild || ending == "main thread" ? 1 : 0;
}

int main(int, char** arguments) {
  alarm(150);
  state = arguments[1];
  ending = arguments[2];
  OPENSSL_init_ssl(0, nullptr);  // as a host might: makes OpenSSL clean up at exit
  veltrano::PosixOptions options;
  options.collectionHost = arguments[3];
  options.certificateAuthorities = arguments[4];
  options.sessionToken = []() -> std::optional<std::string> {
    if (state == "inTokenFunction") stay();
    return std::nullopt;
  };
  options.onTransfer = [](const veltrano::TransferReport&) { useObjects(); };
  options.logSink = [](std::string_view line) {
    useObjects();
    if (!line.ends_with("| Dispatch group waiting")) return;
    if (state == "inSink") stay();
    if (state == "blackHole") mainLoop->stop();
  };
  const auto installation = veltrano::PosixPlatform::install(options);
  if (!installation) return 2;
  mainLoop = &installation.platform->mainRunLoop();
  Veltrano::isLoggerEnabled = state == "inSink" || state == "blackHole" || state == "callingBack";
  std::thread([] {
    char byte;
    if (read(STDIN_FILENO, &byte, 1) == 1) mainLoop->stop();
  }).detach();
  reach();
  mainLoop->run();
  return end();
}

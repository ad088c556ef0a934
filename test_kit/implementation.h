// The implementation of a world: virtual time is in virtual_time.cpp, the host's calls and reports
// in world_host.cpp, requests and answers in collection_host.cpp.
#pragma once

#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "installation/platform_backend.h"
#include "plan/plan.h"
#include "platform/host_callback.h"
#include "platform/mutex.h"
#include "test_kit/recorder.h"
#include "test_kit/substitute.h"
#include "test_kit/world_network.h"
#include "tracker/call_observer.h"
#include "veltrano/posix_platform.h"
#include "veltrano/testing.h"

namespace veltrano::testing {

/// The smallest step of time. What the test does after a run happens this much later.
inline constexpr Duration kInstant{1};

/// Held by the one world that may exist.
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

class World::Implementation final : public internal::CallObserver,
                                    public internal::Installer,
                                    public internal::PlatformBackend {
  using Clock = std::chrono::steady_clock;

 public:
  Implementation();
  ~Implementation() { end(); }

  void end();

  /// Throws `Error` while the host's code is called.
  void refuseInCallback(const std::string& error) const;

  // CallObserver.
  void given(std::string_view eventName, std::function<void(bool)>& completion) override;
  void given(std::function<void()>& refreshHandler) override;
  void called(std::string_view operation, const HostMapView& arguments) override;
  void refused(std::string_view operation, std::size_t argument) override;
  void recorded(const QueuedEvent& event) override;
  void dropped() override;

  // Installer.
  std::string install(PosixOptions options, std::string error, std::string fileError) override;
  PlatformBackend* installed() override { return isInstalled_ ? this : nullptr; }
  RunLoop* currentRunLoop() override { return isOnMainThread() ? &loop_ : nullptr; }

  // PlatformBackend.
  RunLoop& mainRunLoop() override { return loop_; }
  void report(internal::DeviceChange change, std::string_view notification) override;
  bool shutDown(Clock::time_point deadline) override;

  Statistics statistics() const { return substitute_ ? substitute_->statistics() : statistics_; }

  /// The names of the first `count` events that the queue dropped.
  std::vector<std::string> trimmedNames(std::uint64_t count) const;

  /// The names of the events that have not been sent or not been answered.
  std::vector<std::string> waitingNames() const;
  std::string trace() const;

  Duration now() const { return simulated_.timeline.now(); }

  // Main thread.
  std::array<Network, internal::kEndpointPathCount> networks;
  std::vector<testing::Event> delivered;
  std::vector<Heartbeat> heartbeats;
  std::vector<Request> requests;

 private:
  friend class World;

  // The main thread's run loop. Runs its functions as steps of the timeline.
  class Loop final : public RunLoop {
   public:
    explicit Loop(Implementation& world) : world_(world) {}

    void run() override;
    bool runUntil(std::chrono::steady_clock::time_point deadline) override;
    void stop() override;
    void perform(std::function<void()> function) override;
    int fileDescriptor() override { return -1; }
    void runDue() override;

    /// Adds a step for each function posted since the last call.
    void scheduleFunctions(Duration time);
    void forgetSchedule() { scheduled_ = 0; }
    bool takeStop();

   private:
    bool runFor(Duration time);
    void runNext();

    Implementation& world_;
    std::size_t scheduled_ = 0;  // main thread; how many functions have a step
    internal::Mutex mutex_;
    std::deque<std::function<void()>> functions_ GUARDED_BY(mutex_);
    bool stopRequested_ GUARDED_BY(mutex_) = false;
  };

  struct RecordedEvent {
    std::string name;
    std::string json;
    testing::Event::Origins origins;
    Duration at;
  };

  // What runs the world; a shutdown flushes, and then waits for the last answers. Only the main run
  // loop obeys its `stop`, and its functions do not run while the host waits for a shutdown.
  enum class Purpose { advance, mainRunLoop, flush, lastAnswers };
  bool runsMainLoop(Purpose purpose) const {
    return purpose == Purpose::mainRunLoop || (purpose == Purpose::advance && runsMainLoop_);
  }

  bool isOnMainThread() const { return mainThread_ == std::this_thread::get_id(); }
  // A forked child has the library only, which is inert there.
  bool isForkedChild() const { return process_ != getpid(); }
  bool canRun() const { return isOnMainThread() && substitute_ && !isForkedChild(); }
  bool run(Duration target, Purpose purpose);
  std::optional<bool> wasComplete() const;
  bool shutDownWithin(Duration time);
  void flushUntil(Duration deadline);
  bool takeTurn();
  void stopSoon();
  Answer choose(const internal::PostRequest& post, bool isPutOff);
  void arrive(const WorldNetwork::PendingPost& post, const Answer& answer,
              std::optional<internal::Rest> rest);
  void beginBatch(std::string_view body);
  void complain(const std::string& text);
  // Calls `callback`; complains of what it throws, and throws it again.
  template <class Callback>
  auto watched(const std::string& name, const Callback& callback) {
    try {
      return callback();
    } catch (const std::exception& exception) {
      complain(name + " threw: " + exception.what());
      throw;
    } catch (...) {
      if (!internal::isForcedUnwinding()) complain(name + " threw something.");
      throw;
    }
  }
  // Runs `report` at once on the main thread; else posts it to the main run loop.
  void onMainThread(std::function<void()> report);
  void post(std::string_view notification);
  void recordChanges(const internal::DeviceFacts& before, const internal::DeviceFacts& now);

  const Place place_;
  const pid_t process_ = getpid();
  const std::thread::id mainThread_ = std::this_thread::get_id();
  internal::SimulatedPlatform simulated_;
  Recorder recorder_{[this] { return now(); }};
  WorldNetwork network_{
      simulated_.timeline, simulated_.clock,
      [this](const auto& post, bool isPutOff) { return choose(post, isPutOff); },
      [this](const auto& post, const auto& answer, auto rest) { arrive(post, answer, rest); }};
  internal::ZKAuthTokenRepository token_;
  Loop loop_{*this};

  // Main thread.
  bool isRunning_ = false;
  Purpose purpose_ = Purpose::advance;  // of the current run
  bool runsFunction_ = false;           // of the main run loop
  bool runsMainLoop_ = true;            // `advance` does
  bool isStopping_ = false;             // the main run loop's `stop` ends it soon
  bool wasStopped_ = false;             // that has ended it
  bool wasInterrupted_ = false;         // by a shutdown inside of it
  std::function<void(const TransferReport&)> onTransfer_;
  std::deque<RecordedEvent> waiting_;  // recorded events, some perhaps dropped since
  std::size_t batch_ = 0;              // how many of them are in flight
  std::vector<std::string> trimmed_;   // names of events that the queue dropped, as far as known
  Statistics statistics_;              // taken at the end
  std::optional<planning::Plan> plan_;
  planning::Checked checked_;
  std::ofstream coverage_;
  std::map<std::string, double> initialSettings_;

  std::atomic<bool> isShutDown_{false};  // a shutdown or the end has begun; reports do nothing
  std::atomic<bool> isUsed_{false};
  std::atomic<bool> isInstalled_{false};
  std::atomic<bool> isCollecting_{true};

  mutable internal::Mutex mutex_;
  std::vector<std::string> unsettled_ GUARDED_BY(mutex_);  // events since the last run
  std::vector<std::string> complaints_ GUARDED_BY(mutex_);
  std::vector<std::string> silenced_ GUARDED_BY(mutex_);  // events tracked while it is false
  std::optional<internal::DeviceFacts> firstTracked_ GUARDED_BY(mutex_);  // the device then
  std::optional<bool> wasComplete_ GUARDED_BY(mutex_);  // the result of a shutdown

  std::optional<internal::Substitute> substitute_;
};

}  // namespace veltrano::testing

// Makes the simulated platform safe for a host's threads: calls on the main thread go straight to
// the timeline, calls on other threads are deferred until it polls.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/simulated/simulated_platform.h"
#include "veltrano/testing.h"

namespace veltrano::testing {

using internal::ApplicationState;
using internal::SimulatedDevice;
using internal::SimulatedPlatform;

/// The thread that creates it.
class MainThread {
 public:
  bool isCurrent() const { return id_ == std::this_thread::get_id(); }

 private:
  const std::thread::id id_ = std::this_thread::get_id();
};

/// The clocks. Other threads read the time of the last `publish`.
class ThreadedClock final : public internal::WallClock {
 public:
  ThreadedClock(const MainThread& mainThread, const internal::SimulatedClock& clock)
      : mainThread_(mainThread), clock_(clock) {
    publish();
  }

  internal::WallTime now() const override {
    if (mainThread_.isCurrent()) return clock_.now();
    return {Duration(wall_.load(std::memory_order_relaxed))};
  }
  Duration elapsed() const override {
    if (mainThread_.isCurrent()) return clock_.timeline.now();
    return Duration(elapsed_.load(std::memory_order_relaxed));
  }
  void publish() {
    wall_.store(clock_.now().sinceEpoch.count(), std::memory_order_relaxed);
    elapsed_.store(clock_.timeline.now().count(), std::memory_order_relaxed);
  }

 private:
  const MainThread& mainThread_;
  const internal::SimulatedClock& clock_;
  std::atomic<std::int64_t> wall_{0};
  std::atomic<std::int64_t> elapsed_{0};
};

class ThreadedQueue final : public internal::WorkQueue {
 public:
  ThreadedQueue(const MainThread& mainThread, internal::SimulatedWorkQueue& queue)
      : mainThread_(mainThread), queue_(queue) {}

  using WorkQueue::async;
  void async(std::unique_ptr<internal::Block> block) override;
  void asyncAfter(Duration delay, std::shared_ptr<internal::WorkItem> item) override;
  bool isNewest(const internal::Block& block) const override;
  void wait(internal::DispatchGroup& group, std::function<void()> then) override {
    queue_.wait(group, std::move(then));
  }

  /// Submits to the timeline what other threads have submitted here. False if there was nothing, or
  /// if much has been submitted since this was first called at `now`: that waits for a later time.
  bool takeSubmissions(Duration now);

 private:
  struct Submission {
    std::unique_ptr<internal::Block> block;  // null: an item with a delay instead
    Duration delay{0};
    std::shared_ptr<internal::WorkItem> item;
  };

  const MainThread& mainThread_;
  internal::SimulatedWorkQueue& queue_;
  std::optional<Duration> latestTaken_;  // main thread; when submissions were taken
  std::size_t takenAgain_ = 0;           // main thread; how many then, after the first time
  mutable std::mutex mutex_;
  std::deque<Submission> submissions_;  // guarded by mutex_
};

class ThreadedNotifications final : public internal::NotificationCenter {
 public:
  void addObserver(std::string_view name, std::function<void()> observer) override;
  void post(const std::string& name);

  /// Removes the observers once their library has ended.
  void drop();

  /// Called before the first observer is added, which is when the library is first used. Set before
  /// that.
  std::function<void()> onFirstUse = [] {};

 private:
  std::mutex mutex_;
  std::map<std::string, std::vector<std::function<void()>>> observers_;  // guarded by mutex_
  bool isUsed_ = false;                                                  // guarded by mutex_
};

class ThreadedTimers final : public internal::Timers {
 public:
  ThreadedTimers(const MainThread& mainThread, internal::SimulatedTimers& timers)
      : mainThread_(mainThread), timers_(timers) {}

  /// On another thread, returns a timer that never fires.
  std::shared_ptr<internal::Timer> schedule(Duration delay, Duration tolerance,
                                            std::function<void()> action) override;

  /// Called for each such timer, on its thread. Set before the first one.
  std::function<void()> onLostTimer = [] {};

 private:
  const MainThread& mainThread_;
  internal::SimulatedTimers& timers_;
};

/// The state of the device. Thread-safe.
class ThreadedDevice final : public internal::Device,
                             public internal::Application,
                             public internal::CTTelephonyNetworkInfo,
                             public internal::ATTrackingManager,
                             public internal::ASIdentifierManager,
                             public internal::ZKConnectivityManager {
 public:
  SimulatedDevice facts() const {
    const std::lock_guard lock(mutex_);
    return facts_;
  }
  template <class Change>
  void change(Change change) {
    const std::lock_guard lock(mutex_);
    change(facts_);
  }

  internal::ScreenSize mainScreenSize() const override { return facts().screen; }
  std::string systemName() const override { return facts().name; }
  std::string systemVersion() const override { return facts().version; }
  std::string machine() const override { return facts().machineName; }
  int orientation() const override { return facts().deviceOrientation; }
  ApplicationState state() const override { return facts().applicationState; }
  int interfaceOrientation() const override { return facts().screenOrientation; }
  std::optional<std::string> carrierName() const override { return facts().carrier; }
  std::uint64_t trackingAuthorizationStatus() const override { return facts().trackingStatus; }
  std::string advertisingIdentifier() const override { return facts().identifier; }
  bool isReachableOnWiFi() const override { return facts().isOnWiFi; }

 private:
  mutable std::mutex mutex_;
  SimulatedDevice facts_;  // guarded by mutex_
};

/// The network. Chooses each answer when it is asked to post, on the main thread.
class ThreadedNetwork final : public internal::ZKURLSessionManager {
 public:
  using Choose = std::function<Answer(const internal::PostRequest&)>;
  struct Post {
    std::string path;
    std::size_t bytes = 0;  // of the body
    Duration at{0};
    internal::URLSessionCallback callback;
  };
  using Arrive = std::function<void(const Post&, const Answer&)>;

  /// `choose` returns the answer to a post; `arrive` is called before the library gets it.
  ThreadedNetwork(internal::Timeline& timeline, Choose choose, Arrive arrive)
      : timeline_(timeline), choose_(std::move(choose)), arrive_(std::move(arrive)) {}

  void postData(internal::PostRequest request, internal::URLSessionCallback callback) override;

  bool isIdle() const { return underWay_.empty(); }

  /// Fails unanswered posts.
  void fail();

  /// Drops unanswered posts.
  void drop();

 private:
  void finish(std::uint64_t number, const Answer& answer);

  internal::Timeline& timeline_;
  const Choose choose_;
  const Arrive arrive_;
  std::map<std::uint64_t, Post> underWay_;  // main thread
  std::uint64_t posts_ = 0;                 // main thread
};

/// The session token, from the host's function.
struct ThreadedToken final : internal::SessionTokenProvider {
  std::optional<std::string> sessionToken() const override;

  std::function<std::optional<std::string>()> function;  // main thread
};

}  // namespace veltrano::testing

#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "heartbeat/heartbeat_endpoint_request.h"
#include "log/log.h"
#include "platform/host_callback.h"
#include "platform/mutex.h"
#include "platform/platform.h"
#include "properties/default_properties.h"
#include "tracker/call_observer.h"
#include "tracker/event_encoder.h"
#include "tracker/event_queue.h"
#include "tracker/pending_flush.h"
#include "tracker/refresh_triggers.h"
#include "tracker/super_properties.h"
#include "upload/collection_client.h"
#include "upload/rules/final_flush.h"
#include "veltrano/veltrano.h"

namespace veltrano::internal {

/// The tracker behind the public facade. Expects well-formed text, except in `track`. Public
/// operations are thread-safe, except `start`.
class Tracker {
 public:
  using FlushCompletion = HostFunction<bool>;

  /// A handler, called by its selector and by its notification, if it has one.
  struct Handler {
    std::string_view selector;
    void (Tracker::*handle)();
    std::string_view notification;  // empty: by selector only
  };
  static const std::array<Handler, 5> kHandlers;

  /// `startHeartbeat` is called by `setUserId`; `observer`, which may be null, for each event.
  Tracker(const CollectionClient& client,
          std::function<void(const std::string& uid)> startHeartbeat, CallObserver* observer);

  /// The last two steps of the construction. If one throws because memory ran out, the next call
  /// resumes it. The first is not thread-safe and calls no host; the second one's log may.
  void registerForNotifications();
  void startFlushCycle(bool isFirst = false);

  /// Off, drops what waits and records and sends nothing until it is on again. Switching off takes
  /// no memory. No-op if it is that way already, or if memory runs out while switching on.
  void setCollecting(bool isOn);
  const std::atomic<bool>& isCollecting() const { return isCollecting_; }

  /// Drops the host's completion and refresh handler without calling them.
  void releaseCallbacks();

  // Recording.
  void track(std::string_view eventName, const HostMapView& eventProperties,
             FlushCompletion&& completion);

  // Super properties and refresh triggers.
  void setSuperProperties(const HostMapView& properties);
  void removeSuperProperty(std::string key);
  void setRefreshTriggers(const std::optional<std::vector<std::string>>& triggers,
                          HostFunction<> handler);

  // Orientation, read from the device on every call.
  std::string getScreenOrientation() const;
  std::string getDeviceOrientation() const;

  /// See `PendingFlush::due`.
  std::optional<Duration> nextFlush() { return pendingFlush_.due(); }
  /// Whether only the return to the foreground schedules a flush.
  bool isInBackground() const { return !isRunning_; }

  /// Reads the calls that wait for the next flush. Waits for nothing.
  void readCalls() { dispatchQueue_.wakeUp(); }

  /// How the last flush ended. On the work queue.
  FlushResult lastFlush() const {
    return {outcome_.keepsEvents && outcome_.cause != nullptr, eventQueue_.count() > 0};
  }

  /// The current state, for a heartbeat.
  HeartbeatFacts heartbeatFacts() const;

  // Identity.
  void setUserId(const std::string& id);
  void setAppId(const std::string& id);
  void setIdfa();
  void setLibVersion(const std::string& version);
  void setPublisherUid(const std::optional<std::string>& uid);

 private:
  // Lifecycle and orientation. Notifications arrive on the main thread, selectors on any.
  void handleWillEnterForeground();
  void handleDidEnterBackground();
  void handleDidChangeStatusBarOrientation();
  void handleDidChangeDeviceOrientation();
  void setScreenOrientation();
  void recordOrientation(std::string_view event, std::string_view message, std::string_view key,
                         const std::string& orientation);

  // Recording, on the work queue.
  friend class TrackCall;
  void record(std::string_view eventName, const AutomaticProperties& automatic, FlatView carrier,
              FlatView eventProperties, FlushCompletion completion, bool isLogged);
  std::size_t deferrableCalls();
  void changeSuperProperties(PropertyMap changed);
  std::unique_ptr<Block> makeSwitch();
  bool collectsNow() const { return isCollecting_ && pendingSwitches_ == 0; }

  // The next flush, from any thread.
  void scheduleFlush(std::chrono::seconds delay, FlushCompletion completion = nullptr,
                     std::initializer_list<const char*> announcements = {}, bool isFirst = false);
  void scheduleSilently(std::chrono::seconds delay, FlushCompletion completion,
                        bool isFirst) noexcept;
  void runScheduledFlush(std::chrono::seconds delay, FlushCompletion completion);

  // The event queue, on the work queue.
  void trimQueueIfNecessary();
  void flushQueueIfNecessary(FlushCompletion completion);
  class Upload;
  void flushQueue(FlushCompletion completion);
  void upload();
  void finishFlush(const UploadOutcome& outcome);
  void endUpload(const UploadOutcome& outcome);

  static constexpr std::size_t kQueueFlushThreshold = 10;
  static constexpr std::chrono::seconds kQueueFlushInterval{20};

  const CollectionClient& client_;
  const Platform& platform_ = client_.platform;
  const DefaultProperties& defaultProperties_ = client_.defaultProperties;
  const Log& log_ = client_.log;
  Accounting& accounting_ = client_.accounting;
  const std::function<void(const std::string& uid)> startHeartbeat_;
  CallObserver* const observer_;
  // Used by `registerForNotifications` only: the index into kHandlers where it resumes.
  std::size_t nextToRegister_ = 0;
  WorkQueue& dispatchQueue_ = *platform_.workQueue;

  // Written by the lifecycle handlers, read on the work queue and on threads of the networking
  // framework.
  std::atomic<bool> isRunning_{true};

  // Each call reads it. Not next to the event queue, whose changes would slow that down.
  std::atomic<bool> isCollecting_{true};  // written under switchMutex_
  Mutex switchMutex_;
  std::unique_ptr<Block> nextSwitch_ GUARDED_BY(switchMutex_);  // for the next one off
  // Of those that the work queue has yet to take: what is before them there is dropped.
  std::atomic<int> pendingSwitches_{0};

  EventQueue eventQueue_;
  EventEncoder encoder_{platform_.withheldProperties};  // work queue
  bool isEncoderCurrent_ = false;  // work queue; false after the super properties changed

  SuperProperties superProperties_;

  PendingFlush pendingFlush_{
      dispatchQueue_, *platform_.wallClock,
      [this](auto delay, auto completion) { runScheduledFlush(delay, std::move(completion)); }};
  // Set when a flush could not be scheduled, because memory ran out or the host ended the thread;
  // the next event retries.
  std::atomic<bool> needsFlush_{false};

  // The current flush.
  DispatchGroup uploads_;
  FlushCompletion flushCompletion_;  // work queue
  UploadOutcome outcome_;            // work queue, and the end of an upload while the queue waits

  RefreshTriggers refreshTriggers_;
};

}  // namespace veltrano::internal

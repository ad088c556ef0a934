#pragma once

#include <array>
#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/platform.h"
#include "properties/property_map.h"
#include "tracker/event_encoder.h"
#include "tracker/refresh_triggers.h"
#include "upload/event_record.h"
#include "veltrano/veltrano.h"

namespace veltrano {

/// The tracker behind the public facade: all its state, and the operations that the facade passes
/// on. Text that arrives here is well-formed. Public operations are safe from any thread.
class Tracker {
 public:
  using FlushCompletion = Veltrano::FlushCompletion;

  /// A handler that is reached by its selector, and by the notification that calls it if there is
  /// one.
  struct Handler {
    std::string_view selector;
    void (Tracker::*handle)();
    std::string_view notification;  // empty: by selector only
  };
  static const std::array<Handler, 5> kHandlers;

  /// The one instance; lives until the process ends.
  static Tracker& shared();

  // Recording.
  void track(std::string_view eventName, const HostMapView& eventProperties,
             FlushCompletion completion);

  // Super properties and refresh triggers.
  void setSuperProperties(const HostMapView& properties);
  void removeSuperProperty(std::string key);
  void setRefreshTriggers(const std::optional<std::vector<std::string>>& triggers,
                          std::function<void()> handler);

  /// The super properties as the blocks that have run so far left them.
  std::shared_ptr<const PropertyMap> superProperties() const;

  // Orientation, read from the device at every call.
  std::string getScreenOrientation() const;
  std::string getDeviceOrientation() const;

  // Identity.
  void setUserId(const std::string& id);
  void setAppId(const std::string& id);
  void setIdfa();
  void setLibVersion(const std::string& version);
  void setPublisherUid(const std::optional<std::string>& uid);

  Tracker(const Tracker&) = delete;
  Tracker& operator=(const Tracker&) = delete;

 private:
  Tracker();
  ~Tracker() = delete;

  // Lifecycle and orientation. Notifications come on the main thread, selectors on any.
  void registerForNotifications();
  void handleWillEnterForeground();
  void handleDidEnterBackground();
  void handleDidChangeStatusBarOrientation();
  void handleDidChangeDeviceOrientation();
  void setScreenOrientation();

  // Recording, on the work queue.
  friend class TrackCall;
  void record(std::string_view eventName, const AutomaticProperties& automatic, FlatView carrier,
              FlatView eventProperties, FlushCompletion completion);
  void changeSuperProperties(PropertyMap changed);

  // The flush that is due next, from any thread.
  void startFlushCycle();
  void scheduleFlush(std::chrono::seconds delay, FlushCompletion completion);

  // The event queue, on the work queue.
  void trimQueueIfNecessary();
  void flushQueueIfNecessary(FlushCompletion completion);
  void flushQueue(const FlushCompletion& completion);
  void finishFlush(bool wasDelivered);

  static constexpr std::size_t kQueueCapacity = 200;
  static constexpr std::size_t kQueueFlushThreshold = 10;
  static constexpr std::chrono::seconds kQueueFlushInterval{20};

  WorkQueue& dispatchQueue_;

  // Written by the lifecycle's handlers, read on the work queue and on the networking framework's
  // threads.
  std::atomic<bool> isRunning_{true};

  // Changed on the work queue; also emptied by the end of an upload, while the queue waits for it.
  std::deque<EventRecord> eventQueue_;
  std::atomic<std::size_t> eventCount_{0};  // its size, for readers elsewhere

  EventEncoder encoder_;           // work queue
  bool isEncoderCurrent_ = false;  // work queue; false when the super properties have changed

  mutable std::mutex superPropertiesMutex_;
  // Replaced on the work queue under the mutex; the work queue itself reads it without.
  std::shared_ptr<const PropertyMap> superProperties_ = std::make_shared<PropertyMap>();

  std::mutex flushMutex_;
  std::shared_ptr<WorkItem> flushWorkItem_;  // guarded by flushMutex_; the one pending flush

  RefreshTriggers refreshTriggers_;
};

}  // namespace veltrano

// Veltrano, an event-analytics client.
//
//     auto& tracker = Veltrano::shared();
//     tracker.setUserId("user-17");
//     tracker.track("Bought", {{"plan", "pro"}, {"items", 3}, {"tags", {"a", "b"}}});
//
// Choose a platform before the first touch of `shared` (see veltrano/posix_platform.h).
#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "veltrano/export.h"
#include "veltrano/statistics.h"
#include "veltrano/value.h"

/// The tracker: names the user and the application, keeps the properties that every event carries,
/// records events and uploads them. One instance a process, from the first touch of `shared` until
/// the process ends.
///
/// Every operation may be called from any thread, returns at once and never fails: what cannot be
/// used is left out. Operations of one thread take effect in the order of their calls. Text is
/// UTF-8; what is ill-formed becomes U+FFFD. Events wait in memory only, at most 200 of them (the
/// oldest go first), until the collection host has accepted them.
///
/// An exception that a host's callback throws ends there. One that a container of the host's throws
/// while its elements are read ends in the call, which then has no effect and is not counted.
class VELTRANO_EXPORT Veltrano {
 public:
  /// Told how the upload went: true when the events were accepted.
  using FlushCompletion = std::function<void(bool)>;

  /// The one instance, made by the first call.
  static Veltrano& shared();

  /// Whether diagnostic lines go to the standard output. May be changed at any time.
  static std::atomic<bool> isLoggerEnabled;

  /// Names the user; an empty id is ignored. The first id also starts the session heartbeat.
  void setUserId(std::string_view id);

  /// Names the application; an empty id is kept as it is.
  void setAppId(std::string_view id);

  /// Adds the device's advertising identifier to every later event.
  void setIdfa();

  void setLibVersion(std::string_view version);

  /// Names the user as the publisher knows them; an absent or empty uid takes the name away.
  void setPublisherUid(std::optional<std::string_view> uid);
  void setPublisherUid(const char* uid) {
    setPublisherUid(uid != nullptr ? std::optional<std::string_view>(uid) : std::nullopt);
  }

  /// Records an event. Its properties win over super properties of the same key, and those over
  /// what the library adds itself; the maps under "extra_json" are merged key by key.
  ///
  /// With a completion, and while the application is in the foreground, uploads all that wait at
  /// once. The completion is then called on the library's work queue with the outcome; keep it
  /// short. It is not called in the background, nor when a later flush takes this one's place.
  void track(std::string_view eventName, const veltrano::HostMapView& eventProperties = {},
             FlushCompletion forceFlushCompletion = nullptr);

  /// Adds these properties to every later event, replacing those of the same key. A value that
  /// cannot be represented leaves the earlier one in place.
  void setSuperProperties(const veltrano::HostMapView& properties);

  void removeSuperProperty(std::string_view key);

  /// From now on, tracking an event whose name is among `triggers` first calls `handler`, on the
  /// thread that tracks and before the event is recorded; it must not change what `track` was
  /// given. Replaces the earlier triggers; without triggers or handler, nothing is called.
  void setRefreshTriggersWithHandler(std::optional<std::vector<std::string>> triggers,
                                     std::function<void()> handler);

  /// The interface's orientation now: "portrait", "landscape" or "unknown".
  std::string getScreenOrientation() const;

  /// The device's orientation now: "portrait", "portraitUpsideDown", "landscapeLeft",
  /// "landscapeRight", "faceUp", "faceDown" or "unknown".
  std::string getDeviceOrientation() const;

  /// What became of events, uploads and heartbeats so far.
  veltrano::Statistics statistics() const;

  Veltrano(const Veltrano&) = delete;
  Veltrano& operator=(const Veltrano&) = delete;

 private:
  constexpr Veltrano() = default;
  ~Veltrano() = default;
};

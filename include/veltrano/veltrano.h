// Veltrano, an event-analytics client.
//
//     auto& tracker = Veltrano::shared();
//     tracker.setUserId("user-17");
//     tracker.track("Bought", {{"plan", "pro"}, {"items", 3}, {"tags", {"a", "b"}}});
//
// Install a platform before the first call of `shared` (see veltrano/posix_platform.h).
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

/// The tracker: identifies the user and the application, records events and uploads them. There is
/// one instance per process; it is never destroyed.
///
/// Every operation is thread-safe, returns without waiting for the network and never throws; values
/// that events cannot hold are left out. Operations of one thread take effect in call order. Text
/// is UTF-8; ill-formed sequences become U+FFFD. Exceptions that a host's callback throws are
/// dropped.
///
/// If a host's container throws while it is read, the call has no effect and is not counted.
///
/// Events wait in memory until the collection host accepts them, 200 at most; beyond that the
/// oldest are dropped. Events that wait when the process ends are lost.
class VELTRANO_EXPORT Veltrano {
 public:
  /// Gets the outcome of the upload: true when the events will not be sent again.
  ///
  /// Warning: a batch that the collection host refuses with status 400, or that cannot be encoded,
  /// is dropped and counts as accepted.
  using FlushCompletion = std::function<void(bool)>;

  /// The one instance, created by the first call. With the static library, each program or shared
  /// library that contains it has its own.
  static Veltrano& shared();

  /// Whether diagnostic lines are written, to the standard output unless the platform has a log
  /// sink. May be changed at any time. They hold names of events and triggers, the identifiers that
  /// are set and the value of a super property that is removed.
  static std::atomic<bool> isLoggerEnabled;

  /// Identifies the user; an empty id is ignored. The first id also starts the session heartbeat,
  /// on the run loop of the calling thread.
  ///
  /// Warning: on a thread that never runs its run loop, heartbeats start only when the application
  /// returns from the background.
  ///
  /// Warning: this cannot sign a user out. Events that wait are sent under the query of the next
  /// user, and heartbeats name the first one until the process ends: see "Users sign in and out" in
  /// docs/guide.md.
  void setUserId(std::string_view id);

  /// Identifies the application; an empty id is stored, too.
  void setAppId(std::string_view id);

  /// Adds the device's advertising identifier, as it is now, to every later event.
  void setIdfa();

  /// Replaces the library version that events and requests report. Without it, or after
  /// `removeSuperProperty("lib_version")`, events report the library's own and requests "ios_0.0".
  void setLibVersion(std::string_view version);

  /// Identifies the user by the publisher's own id; an absent or empty one removes it.
  void setPublisherUid(std::optional<std::string_view> uid);
  void setPublisherUid(const char* uid) {
    setPublisherUid(uid != nullptr ? std::optional<std::string_view>(uid) : std::nullopt);
  }

  /// Records an event. Its properties override super properties, which override the library's own;
  /// the maps under "extra_json" are merged key by key.
  ///
  /// A completion forces an upload of all waiting events while the application is in the
  /// foreground. It runs on the library's work queue, which waits for it: keep it short, and never
  /// make it wait for another flush.
  ///
  /// Warning: the completion is not called in the background, nor when a later flush replaces this
  /// one. While many threads track, that happens to most.
  void track(std::string_view eventName, const veltrano::HostMapView& eventProperties = {},
             FlushCompletion forceFlushCompletion = nullptr);

  /// Adds these properties to every later event, replacing those with the same key. A value that
  /// events cannot hold leaves the earlier one in place. "uid" and "lib_version" also go into the
  /// requests, as with `setUserId` and `setLibVersion`.
  void setSuperProperties(const veltrano::HostMapView& properties);

  void removeSuperProperty(std::string_view key);

  /// Calls `handler` whenever an event whose name is in `triggers` is tracked: on the tracking
  /// thread, before the event is recorded. Names match by canonical equivalence; case counts. The
  /// library's own events trigger, too, "Heartbeat Failed" on one of its threads. The handler must
  /// not modify the arguments of that `track` call. Replaces the earlier triggers; without triggers
  /// or a handler, nothing is called.
  void setRefreshTriggersWithHandler(std::optional<std::vector<std::string>> triggers,
                                     std::function<void()> handler);

  /// Whether anything is collected; true at first. For consent that is given, withdrawn and given
  /// again.
  ///
  /// While it is false, `track` only calls the refresh handler, and no request is started;
  /// identity, super properties and reports of the application and the device still take effect.
  /// Switching off drops the waiting events. They count as `Statistics::droppedByOptOut`; their
  /// completions are not called. An upload or a heartbeat in progress ends, with its retries within
  /// a minute; the upload's completion is called, and its events are not sent again. Switching on
  /// schedules an upload 20 s later, if the application is in the foreground, and a heartbeat a
  /// second later, on the main thread, unless one is pending. Not stored: call it after each
  /// installation. A call before the installation counts as the first use of the library; the
  /// installation is then refused.
  void setCollecting(bool isOn);

  /// The interface's current orientation: "portrait", "landscape" or "unknown".
  std::string getScreenOrientation() const;

  /// The device's current orientation: "portrait", "portraitUpsideDown", "landscapeLeft",
  /// "landscapeRight", "faceUp", "faceDown" or "unknown".
  std::string getDeviceOrientation() const;

  /// Counts of events, uploads and heartbeats so far. The library leaves up to nine calls of
  /// `track` unread until the next flush, which saves wake-ups. This has them read, but does not
  /// wait for it: the latest calls may be missing.
  veltrano::Statistics statistics() const;

  /// How things stand, in a few lines of plain English for a debug screen or a support request:
  /// whether a platform is installed, the counts, why events were dropped, how the last upload and
  /// the last heartbeat ended, and when the next flush is due. Contains nothing about the user; a
  /// reason may name a file of the options. The wording may change; do not parse it. Empty if
  /// memory runs out. Unlike `shared`, it may be called before a platform is installed.
  static std::string status();

  Veltrano(const Veltrano&) = delete;
  Veltrano& operator=(const Veltrano&) = delete;

 private:
  constexpr Veltrano() = default;
  ~Veltrano() = default;
};

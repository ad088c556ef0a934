#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "heartbeat/heartbeat_manager.h"
#include "log/log.h"
#include "platform/host_callback.h"
#include "platform/mutex.h"
#include "platform/platform.h"
#include "properties/default_properties.h"
#include "tracker/call_observer.h"
#include "tracker/tracker.h"
#include "upload/collection_client.h"

namespace veltrano::internal {

/// The root: owns the tracker, the heartbeat and what they share, on one platform. The process has
/// one, which is never destroyed, so threads may use it while the process exits. Tests and
/// simulations create more and may destroy them once nothing runs on their platform. Thread-safe.
class Library {
 public:
  /// The platform's services, and `observer` if there is one, must outlive the library. Starts
  /// nothing; `tracker` does.
  explicit Library(const Platform& platform, CallObserver* observer = nullptr);

  /// The process's library. If none is installed, the first call installs an inert one for good.
  static Library& current() {
    Library* const library = installed();
    return library != nullptr ? *library : makeCurrent();
  }

  /// The process's library; null if there is none yet.
  static Library* installed() { return processLibrary.load(std::memory_order_acquire); }

  /// Creates the process's library on `platform`. False, without effect, when there is one already.
  [[nodiscard]] static bool install(const Platform& platform);

  /// Replaces the process's library with `library`, which may be null, and returns the old one.
  static Library* exchangeCurrent(Library* library) noexcept {
    return processLibrary.exchange(library, std::memory_order_acq_rel);
  }

  /// Replaces the process's library, which is being shut down, with `inert`, which then reports the
  /// old library's statistics. Returns the old one.
  static Library& replaceCurrent(Library& inert) noexcept;

  /// Ends the library's part in a shutdown, once nothing runs on its platform any more: drops the
  /// host's callbacks and what waits.
  void end();

  /// Warning: no other thread may be using the library.
  void configure(std::string collectionHost, std::vector<std::string> withheldProperties) {
    platform_.collectionHost = std::move(collectionHost);
    platform_.withheldProperties = std::move(withheldProperties);
  }

  const CollectionClient& client() const { return client_; }
  /// See `replaceCurrent`. A forked child does not touch the locks of its parent's library.
  Accounting& accounting() {
    Library* const predecessor = isForkedChild() ? nullptr : predecessor_.load();
    return predecessor != nullptr ? predecessor->accounting_ : accounting_;
  }
  CallObserver* observer() const { return observer_; }

  /// The tracker. The first call starts it; the next one resumes that if memory ran out. Returns
  /// once the tracker observes notifications, whichever thread started it.
  Tracker& tracker() {
    if (!isStarted_.load(std::memory_order_acquire)) start();
    return tracker_;
  }

  /// See `Tracker::lastFlush`. Starts nothing.
  FlushResult lastFlush() const { return tracker_.lastFlush(); }

  /// `HeartbeatManager.shared`, created by the first call.
  HeartbeatManager& heartbeatManager();

  /// See `Veltrano::setCollecting`.
  void setCollecting(bool isOn);

  /// How the process's library is doing, in plain text: see `Veltrano::status`.
  static std::string status();

 private:
  static Library& makeCurrent();
  void start();

  static constinit std::atomic<Library*> processLibrary;

  Platform platform_;
  CallObserver* const observer_;  // may be null
  const Log log_;
  const DefaultProperties defaultProperties_;
  Accounting accounting_;
  const CollectionClient client_{platform_, defaultProperties_, log_, accounting_};
  Tracker tracker_;
  std::atomic<Library*> predecessor_{nullptr};  // see replaceCurrent
  Mutex startMutex_;
  std::atomic<bool> isStarted_{false};  // set under startMutex_
  Mutex heartbeatMutex_;
  std::optional<HeartbeatManager> heartbeatManager_;  // its creation is guarded by heartbeatMutex_
};

}  // namespace veltrano::internal

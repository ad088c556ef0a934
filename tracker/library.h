#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <string>

#include "heartbeat/heartbeat_manager.h"
#include "log/log.h"
#include "platform/platform.h"
#include "properties/default_properties.h"
#include "tracker/call_observer.h"
#include "tracker/tracker.h"
#include "upload/endpoints.h"

namespace veltrano::internal {

/// A whole library on one platform: all that the facade reaches. A process has one, which is never
/// destroyed, so that threads may still use it while the process ends. Tests and simulations make
/// more; such a one may be destroyed when nothing on its platform runs any more.
class Library {
 public:
  /// The platform's services, and `observer` when there is one, must outlive the library. Nothing
  /// happens before `tracker` is called.
  explicit Library(const Platform& platform, CallObserver* observer = nullptr);
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  /// The process's library. When there is none at the first call, that is one on `Platform()` for
  /// good. Safe to call from any thread, as is everything here.
  static Library& current() {
    Library* const library = processLibrary.load(std::memory_order_acquire);
    return library != nullptr ? *library : makeCurrent();
  }

  /// Makes a library on `platform` the process's one. False, without effect, when there is one.
  [[nodiscard]] static bool install(const Platform& platform);

  /// Puts `library`, which may be null, in the place of the process's one, and returns that.
  static Library* exchangeCurrent(Library* library) noexcept {
    return processLibrary.exchange(library, std::memory_order_acq_rel);
  }

  const Endpoints& endpoints() const { return endpoints_; }
  const Accounting& accounting() const { return accounting_; }
  CallObserver* observer() const { return observer_; }

  /// The tracker, which the first call starts; when memory is short, the one after it.
  Tracker& tracker() {
    if (!isStarted_.load(std::memory_order_relaxed) && !isStarted_.exchange(true)) start();
    return tracker_;
  }

  /// `HeartbeatManager.shared`, made by the first call.
  HeartbeatManager& heartbeatManager();

 private:
  static Library& makeCurrent();
  void start();

  static constinit std::atomic<Library*> processLibrary;

  const Platform platform_;
  CallObserver* const observer_;  // null: nobody watches
  const Log log_;
  const DefaultProperties defaultProperties_;
  Accounting accounting_;
  const Endpoints endpoints_{platform_, defaultProperties_, log_, accounting_};
  Tracker tracker_;
  std::atomic<bool> isStarted_{false};
  std::mutex heartbeatMutex_;
  std::optional<HeartbeatManager> heartbeatManager_;  // guarded by heartbeatMutex_ until it is made
};

}  // namespace veltrano::internal

// What the POSIX platform needs beyond POSIX, implemented twice: with what Linux offers in linux/,
// and with POSIX alone in portable/. The build option VELTRANO_PORTABLE chooses.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace veltrano::internal {

/// Names the calling thread for debuggers, if the system can. A long name is truncated.
void nameThisThread(const char* name);

/// Gives the calling thread its own descriptor table, if the system can. In it stay `kept` and the
/// standard error, for crash reports. False if the thread keeps the shared table.
bool separateDescriptors(int kept);

/// Like socket(2). Executed programs do not inherit the descriptor.
int openSocket(int family, int type, int protocol);

/// The interface of the default route; empty without one, or when the system does not say. Throws
/// std::bad_alloc.
std::string defaultRouteInterface();

/// Whether the default route uses a wireless interface whose link is up. False when the system does
/// not say. Throws std::bad_alloc.
bool isOnWiFi();

/// Notices changes of the network's interfaces and routes. Not thread-safe.
class NetworkChanges {
 public:
  /// Misses no change from here on.
  NetworkChanges();
  ~NetworkChanges();  // NOLINT(performance-trivially-destructible): only in portable/
  NetworkChanges(const NetworkChanges&) = delete;
  NetworkChanges& operator=(const NetworkChanges&) = delete;

  /// Has input after a change. -1 when the system reports none to this process.
  int descriptor() const { return descriptor_; }

  /// Takes all changes so far.
  void clear();

 private:
  int descriptor_ = -1;
};

/// Wakes a thread. With what Linux offers, without a lock that the woken thread would need next.
class Bell {
 public:
  Bell();
  ~Bell();

  /// Thread-safe.
  void ring();

  /// Returns after a ring since the last `wait` or `clear`, or at `deadline`, if there is one.
  /// Waiting thread only.
  void wait(std::optional<std::chrono::steady_clock::time_point> deadline);

  /// Forgets an earlier ring. Waiting thread only.
  void clear();

 private:
  struct State;
  const std::unique_ptr<State> state_;
};

/// A descriptor that has input from a given time on. Not thread-safe.
class WakeUp {
 public:
  using Time = std::chrono::steady_clock::time_point;

  WakeUp() = default;
  ~WakeUp();
  WakeUp(const WakeUp&) = delete;
  WakeUp& operator=(const WakeUp&) = delete;

  /// Opens the descriptor, if it is not open. -1 when the process is out of descriptors or threads.
  int descriptor();

  /// Sets the time; absent means never. No-op before `descriptor`.
  void set(std::optional<Time> time);

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace veltrano::internal

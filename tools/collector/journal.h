// What the collector has seen lately, for the page and for scripts.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>

#include "encoding/json_text.h"
#include "platform/mutex.h"
#include "tools/collector/wire_check.h"

namespace collector {

/// Keeps the latest entries of each kind as JSON objects, numbered across all kinds in order of
/// arrival. Thread-safe.
class Journal {
 public:
  enum class Kind { event, heartbeat, refused, request };

  /// Of each kind, at most this many entries are kept, and of these at most this much JSON.
  static constexpr std::size_t kMaximumEntries = 10'000;
  static constexpr std::size_t kMaximumBytes = std::size_t{64} << 20;

  /// Adds the events or the heartbeat of an accepted request, and what is not as planned in them.
  void addAccepted(const httplib::Request& request, const WireMessage& message, int answer,
                   const Violations& violations);
  /// Adds a request that passed the check, with the status of its answer (0: none).
  void addRequest(const httplib::Request& request, int answer, bool isAccepted);
  void addRefused(const httplib::Request& request, const WireMessage& message, int status,
                  const std::string& reason);
  /// Sets the pending faults, which `next` reports when they change.
  void setFaults(std::string json);
  /// Forgets all entries. The numbers go on.
  void clear();

  /// The entries as a JSON array, or only those of events that are not as planned.
  std::string list(Kind kind, bool onlyViolations = false) const;

  /// Waits until `count` events or heartbeats of this name have arrived, including those that are
  /// kept. Returns how many have arrived, fewer if the time has passed or `stop` was called.
  std::uint64_t wait(std::string_view name, std::uint64_t count, std::chrono::milliseconds timeout);

  /// What a reader of the stream has got so far.
  struct Position {
    std::uint64_t number = 0;
    std::uint64_t clearings = UINT64_MAX;
    std::uint64_t faultChanges = UINT64_MAX;
  };
  /// Waits until something follows the position, and returns part of it as server-sent events.
  /// Returns nothing if the time has passed or `stop` was called.
  std::string next(Position& position, std::chrono::milliseconds timeout);

  /// Ends all waiting, now and later.
  void stop();
  bool isStopped() const;

 private:
  struct Entry {
    Kind kind;
    std::string name;
    std::string json;
    bool isViolation;
  };
  struct Kept {
    std::deque<std::uint64_t> numbers;
    std::size_t bytes = 0;
  };

  void add(Kind kind, std::string name, veltrano::internal::JSONMembers members,
           bool isViolation = false);

  mutable veltrano::internal::Mutex mutex_;
  std::condition_variable changed_;
  std::map<std::uint64_t, Entry> entries_ GUARDED_BY(mutex_);  // by number
  std::array<Kept, 4> kept_ GUARDED_BY(mutex_);                // by kind
  std::uint64_t lastNumber_ GUARDED_BY(mutex_) = 0;
  std::uint64_t clearings_ GUARDED_BY(mutex_) = 0;
  std::string faults_ GUARDED_BY(mutex_) = "[]";
  std::uint64_t faultChanges_ GUARDED_BY(mutex_) = 0;
  bool isStopped_ GUARDED_BY(mutex_) = false;
};

}  // namespace collector

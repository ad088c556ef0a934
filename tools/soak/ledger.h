// What becomes of every event. The library's log tells what it does with its queue, the collector's
// record tells what arrived; the two have to agree.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace soak {

/// Events are numbered twice: by the thread that tracks them, from 0, and by the order in which the
/// library recorded them, which is their place.
class Ledger {
 public:
  Ledger();

  /// Takes a line of the library's log, on the thread that logs it.
  void takeLogLine(std::string_view line);

  /// Whether the last line of the calling thread's said that a flush gives way to a later one.
  static bool isReplacingFlush();

  /// Whether no event waits for its upload.
  bool isSettled();

  struct Result {
    std::size_t tracked = 0;  // with the library's own events
    std::size_t delivered = 0, trimmed = 0, refused = 0;
    std::size_t uploads = 0, successes = 0;
    std::size_t repeated = 0;  // arrivals beyond the first of an event
    std::size_t heartbeats = 0, failedHeartbeats = 0;
    std::map<std::string, std::size_t> violations;
  };

  /// Once nothing waits any more: compares with the collector's records, in the order in which they
  /// were written. `tracked` has the number of events of each thread.
  Result check(const std::vector<std::filesystem::path>& records,
               const std::vector<std::size_t>& tracked);

 private:
  using Clock = std::chrono::system_clock;
  enum class Fate : std::uint8_t { waiting, trimmed, delivered, refused };

  struct Upload {
    std::size_t begin, end;  // places
    Clock::time_point sent, finished;
    bool isDelivered = false;
    int lastAnswer = -1;  // that the collector recorded; -1 while it has recorded none
  };

  struct Event {
    int thread = kUnknown;
    std::size_t number = 0;
  };
  static constexpr int kUnknown = -2;   // has not arrived
  static constexpr int kLibrarys = -1;  // recorded by the library itself

  struct Batch {
    std::vector<Event> events;
    Clock::time_point received;  // cut to milliseconds
    int answer = 0;
  };

  void checkRecord(const std::filesystem::path& record, Result& result);
  void checkBatch(const Batch& batch, Result& result);
  Upload* uploadOf(const Batch& batch);
  bool contains(const Upload& upload, const Batch& batch) const;

  std::mutex mutex_;  // guards everything below
  std::vector<Fate> fates_;
  std::vector<Upload> uploads_;
  std::vector<Event> arrived_;  // by place
  std::size_t removed_ = 0;     // events that no longer wait; the oldest go first
  std::size_t librarys_ = 0;
  std::size_t miscounted_ = 0;
  int status_ = 0;
  bool isUploading_ = false;
};

}  // namespace soak

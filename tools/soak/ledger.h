// Accounts for every event: what the library's log says about the queue must match what the
// collector recorded.
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

/// Events have two numbers: one per tracking thread, from 0, and their place in the order in which
/// the library recorded them.
class Ledger {
 public:
  Ledger();

  /// Processes a line of the library's log, on the thread that logs it.
  void takeLogLine(std::string_view line);

  /// Whether the calling thread's last line said that a flush was replaced.
  static bool isReplacingFlush();

  /// Whether no event is waiting.
  bool isSettled();

  struct Result {
    std::size_t tracked = 0;  // including the library's own events
    std::size_t delivered = 0, trimmed = 0, refused = 0;
    std::size_t uploads = 0, successes = 0;
    std::size_t repeated = 0;  // duplicate arrivals
    std::size_t heartbeats = 0, failedHeartbeats = 0;
    std::map<std::string, std::size_t> violations;
  };

  /// Compares with the collector's records, in the order in which they were written. Call it when
  /// settled. `tracked` is the number of events of each thread.
  Result check(const std::vector<std::filesystem::path>& records,
               const std::vector<std::size_t>& tracked);

 private:
  using Clock = std::chrono::system_clock;
  enum class Fate : std::uint8_t { waiting, trimmed, delivered, refused };

  struct Upload {
    std::size_t begin, end;  // places
    Clock::time_point sent, finished;
    bool isDelivered = false;
    int lastAnswer = -1;  // as the collector recorded it; -1: none
  };

  struct Arrival {
    int thread = kUnknown;
    std::size_t number = 0;
  };
  static constexpr int kUnknown = -2;  // not arrived
  static constexpr int kOwn = -1;      // recorded by the library itself

  struct Batch {
    std::vector<Arrival> events;
    Clock::time_point received;  // truncated to milliseconds
    int answer = 0;
  };

  void checkRecord(const std::filesystem::path& record, Result& result);
  void checkBatch(const Batch& batch, Result& result);
  Upload* uploadOf(const Batch& batch);
  bool contains(const Upload& upload, const Batch& batch) const;

  std::mutex mutex_;  // guards everything below
  std::vector<Fate> fates_;
  std::vector<Upload> uploads_;
  std::vector<Arrival> arrived_;  // by place
  std::size_t removed_ = 0;       // number of events that left the queue, oldest first
  std::size_t own_ = 0;
  std::size_t miscounted_ = 0;
  int status_ = 0;
  bool isUploading_ = false;
};

}  // namespace soak

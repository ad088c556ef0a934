// Processes the collection server's requests.
#pragma once

#include <httplib.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <string>

#include "plan/plan.h"
#include "platform/mutex.h"
#include "tools/collector/fault.h"
#include "tools/collector/journal.h"
#include "tools/collector/wire_check.h"

namespace collector {

struct CollectorOptions {
  std::optional<std::string> requiredToken;  // for heartbeats
  bool isReadable = false;                   // lines for humans instead of JSON
  FaultsByPath faults;
  std::optional<veltrano::planning::Plan> plan;
};

/// Checks, counts, reports and answers requests. Thread-safe.
class Collector {
 public:
  /// Reports accepted requests to `output`, and everything to `journal`. Calls `requestShutdown`
  /// when a client asks for it.
  Collector(CollectorOptions options, std::ostream& output, Journal& journal,
            std::function<void()> requestShutdown);

  void handle(const httplib::Request& request, httplib::Response& response);

  /// Answers delayed requests at once.
  void stopWaiting();

  /// Whether an event that was not as planned has been accepted.
  bool hasViolations();

 private:
  struct Counters {
    std::uint64_t received = 0;
    std::uint64_t accepted = 0;
    std::uint64_t refused = 0;
  };

  void control(const httplib::Request& request, httplib::Response& response);
  void collect(const httplib::Request& request, httplib::Response& response);
  void refuse(const httplib::Request& request, const WireMessage& message, int status,
              const std::string& reason, httplib::Response& response);
  void accept(const httplib::Request& request, const WireMessage& message, int answer)
      REQUIRES(mutex_);
  void answer(const Fault& fault, const SSL* connection, httplib::Response& response);
  std::string countersJSON();

  const std::optional<std::string> requiredToken_;
  const bool isReadable_;
  const std::optional<veltrano::planning::Plan> plan_ GUARDED_BY(mutex_);
  const std::function<void()> requestShutdown_;
  Journal& journal_;

  veltrano::internal::Mutex mutex_;
  std::condition_variable stopping_;
  bool isStopping_ GUARDED_BY(mutex_) = false;
  std::ostream& output_ GUARDED_BY(mutex_);
  FaultsByPath faults_ GUARDED_BY(mutex_);
  std::map<std::string, Counters> counters_ GUARDED_BY(mutex_);
  std::uint64_t eventsAccepted_ GUARDED_BY(mutex_) = 0;
  bool hasViolations_ GUARDED_BY(mutex_) = false;
};

}  // namespace collector

#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "encoding/json_text.h"
#include "platform/mutex.h"
#include "platform/simulated/simulated_platform.h"
#include "veltrano/testing.h"
#include "veltrano/value.h"

namespace veltrano::testing {

/// Records what a host and its test do as the steps of a scenario. Thread-safe.
///
/// Calls between runs form one batch step; calls during a run are recorded a microsecond later. In
/// a scenario, a step runs before everything else that is due at its time.
class Recorder {
 public:
  /// `now` returns the time since the start.
  explicit Recorder(std::function<Duration()> now) : clock_(std::move(now)) {}

  /// Adds an operation at the current time.
  void add(std::string_view operation, const internal::JSONMembers& fields = {});

  /// Adds a call, as reported to `CallObserver::called`.
  void addCall(std::string_view operation, const HostMap& arguments, bool hasRunLoop);

  /// Adds the answer to a post to `path`.
  void addAnswer(const std::string& path, const Answer& answer);

  /// Ends the scenario at `time`, after which it accepts no steps.
  void end(Duration time);

  /// Adds a post to `posts`, as one to the simulated collection host. It is not a step.
  void addPost(const internal::PostRequest& post);

  /// The posts, as lines of the scenario's trace.
  std::string posts() const;

  /// True between runs: later calls precede other work due at the same time.
  void setBeforeAll(bool isBeforeAll);

  /// The scenario: the configuration of `device`, `info` and the `settings` at the start, the
  /// steps, and an end at the current time unless it has ended.
  std::string scenario(const internal::DeviceFacts& device, const std::optional<HostMap>& info,
                       const std::map<std::string, double>& settings) const;

 private:
  struct Step {
    Duration at{0};
    bool isClosed = false;                // takes no further operations
    std::vector<std::string> operations;  // JSON objects
    bool isAnswer = false;                // of the network
  };
  std::vector<std::string>& operationsNow() REQUIRES(mutex_);
  void noteLogSwitch() REQUIRES(mutex_);

  const std::function<Duration()> clock_;
  mutable internal::Mutex mutex_;
  std::vector<Step> steps_ GUARDED_BY(mutex_);  // ordered by time
  std::string posts_ GUARDED_BY(mutex_);
  bool isBeforeAll_ GUARDED_BY(mutex_) = true;
  bool hasEnded_ GUARDED_BY(mutex_) = false;
  bool isLogOn_ GUARDED_BY(mutex_) = false;
  int callbacks_ GUARDED_BY(mutex_) = 0;
  std::map<std::string, std::string> answers_ GUARDED_BY(mutex_);  // the latest step for each path
};

}  // namespace veltrano::testing

#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "encoding/json_writer.h"
#include "test_kit/stage.h"
#include "veltrano/value.h"

namespace veltrano::testing {

/// Keeps what a host and its test do as the steps of a scenario. Safe to use from any thread.
///
/// In a scenario, steps come before everything else that is due at their time. So does what is done
/// between two runs of the world, all in one batch. What is done in the middle of a run stands a
/// microsecond later.
class Recorder {
 public:
  using WriteFields = std::function<void(internal::JSONWriter&)>;

  /// `now` gives the time since the start.
  explicit Recorder(std::function<Duration()> now) : clock_(std::move(now)) {}

  /// Something done now.
  void add(std::string_view operation, const WriteFields& writeFields = nullptr);

  /// An operation of the library, as its observer is told of it.
  void addCall(std::string_view operation, const HostMap& arguments, bool isOnMainThread);

  /// A post to `path` is answered so, now.
  void addAnswer(const std::string& path, const Answer& answer);

  /// A post, now, which is no step.
  void addPost(const internal::PostRequest& post);

  /// Those lines of the scenario's trace that posts are in.
  std::string posts() const;

  /// Whether what is done comes before everything else that is due at its time.
  void setBeforeAll(bool isBeforeAll);

  /// The scenario: the device as it was at the beginning, the steps, and an end now.
  std::string scenario(const SimulatedDevice& device, const std::optional<HostMap>& info) const;

 private:
  struct Step {
    Duration at{0};
    bool isClosed = false;                // takes no further operations
    std::vector<std::string> operations;  // each the members of a JSON object
  };
  std::vector<std::string>& operationsNow();
  void noteLogSwitch();

  const std::function<Duration()> clock_;
  mutable std::mutex mutex_;  // guards everything below
  std::vector<Step> steps_;   // by their times
  std::string posts_;
  bool isBeforeAll_ = true;
  bool isLogOn_ = false;
  int callbacks_ = 0;
  std::map<std::string, std::string> answers_;  // by path, the latest as a step
};

}  // namespace veltrano::testing

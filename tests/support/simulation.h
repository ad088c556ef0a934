// The library on the simulated platform, with everything that it logged, sent and called back.
#pragma once

#include <rapidjson/document.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/simulated/simulated_platform.h"
#include "tracker/library.h"
#include "veltrano/veltrano.h"

namespace veltrano::internal {

/// A library on a simulated platform, and the process's library while this object lives.
class Simulation {
 public:
  /// `change` replaces some of the platform's services.
  explicit Simulation(const std::function<void(Platform&)>& change = [](Platform&) {});
  ~Simulation();

  /// Runs until `seconds` of virtual time since the start.
  void runUntil(double seconds) { platform.timeline.runUntil(durationFromSeconds(seconds)); }

  /// Runs what is due now, without advancing the time.
  void settle() { platform.timeline.runUntil(platform.timeline.now()); }

  /// A completion that adds its outcome to `outcomes`.
  Veltrano::FlushCompletion completion() {
    return [this](bool result) { outcomes.push_back(result); };
  }

  SimulatedPlatform platform;
  std::vector<std::string> lines;
  std::vector<rapidjson::Document> posts;  // their decoded bodies
  std::vector<bool> outcomes;

 private:
  Library library_;
  Library* const replaced_ = Library::exchangeCurrent(&library_);
};

/// The value of `key` as compact JSON; "absent" if there is none.
std::string text(const rapidjson::Value& object, std::string_view key);

}  // namespace veltrano::internal

#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "platform/simulated/simulated_platform.h"
#include "tools/fleet/client_session.h"
#include "tracker/library.h"

namespace fleet {

/// A source of random numbers that is small enough for every application to have one of its own,
/// so that how it is used does not depend on what the others and the host do.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  std::uint64_t next();
  /// From 0 up to, but not including, 1.
  double uniform() { return static_cast<double>(next() >> 11) * 0x1p-53; }
  std::uint64_t below(std::uint64_t limit) { return next() % limit; }
  Duration exponential(double meanSeconds);

 private:
  std::uint64_t state_;
};

/// One simulated application with a library of its own, used as the scenario says. Its process
/// begins with the first session and lasts for the whole run.
class Application {
 public:
  Application(int number, const Scenario& scenario,
              std::shared_ptr<veltrano::internal::Timeline> timeline, CollectionHost& host);
  ~Application();
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  /// Ends its use, in the background. Once a few minutes have passed, nothing of it runs any more.
  void end();

  bool isInForeground() const { return isInForeground_; }
  std::uint64_t tracked() const { return tracked_; }
  veltrano::Statistics statistics() const;

 private:
  struct Process;

  void scheduleNext();
  void act();
  void launch();
  void changeSides();
  void track();
  Duration nextSession();

  const int number_;
  const Scenario& scenario_;
  const std::shared_ptr<veltrano::internal::Timeline> timeline_;
  CollectionHost& host_;
  Random random_;
  std::unique_ptr<Process> process_;  // none before the first session
  Duration changesAt_{0};             // when it comes to the foreground or leaves it
  std::uint64_t tracked_ = 0;
  bool isInForeground_ = false;
  bool hasEnded_ = false;
};

}  // namespace fleet

#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "platform/simulated/simulated_platform.h"
#include "tools/fleet/client_session.h"
#include "tracker/library.h"

namespace fleet {

/// A source of random numbers, small enough for each application to have its own. How an
/// application is used therefore does not depend on the other applications or the host.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  std::uint64_t next();
  /// At least 0, less than 1.
  double uniform() { return static_cast<double>(next() >> 11) * 0x1p-53; }
  std::uint64_t below(std::uint64_t limit) { return next() % limit; }
  Duration exponential(double meanSeconds);

 private:
  std::uint64_t state_;
};

/// One simulated application with its own library, used as the scenario says. Its process starts
/// with the first session and lasts for the whole run.
class Application {
 public:
  Application(int number, const Scenario& scenario,
              std::shared_ptr<veltrano::internal::Timeline> timeline, CollectionHost& host);
  ~Application();
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  /// Puts it into the background for good. A few minutes later, nothing of it runs any more.
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
  std::unique_ptr<Process> process_;  // null before the first session
  Duration changesAt_{0};             // when it next enters the foreground or the background
  std::uint64_t tracked_ = 0;
  bool isInForeground_ = false;
  bool hasEnded_ = false;
};

}  // namespace fleet

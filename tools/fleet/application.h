#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/simulated/simulated_platform.h"
#include "tools/fleet/client_session.h"
#include "tools/random.h"
#include "tracker/library.h"

namespace fleet {

/// One simulated application with its own library, used as the scenario says. Its process starts
/// with the first session and lasts for the whole run, unless the scenario says that some end.
class Application {
 public:
  Application(int number, const Scenario& scenario, std::shared_ptr<Timeline> timeline,
              CollectionHost& host);
  ~Application();

  /// Puts it into the background for good. A few minutes later, nothing of it runs any more.
  void end();

  bool isInForeground() const { return isInForeground_; }
  std::uint64_t tracked() const { return tracked_; }
  /// Adds the counts of all processes. Nothing waits in those that have ended. Returns whether each
  /// adds up.
  bool addTo(Statistics& sum) const;
  /// Events that were lost with their processes: neither delivered nor dropped.
  std::uint64_t lost() const { return lost_; }
  void closeConnections();

 private:
  struct Process;

  void scheduleNext();
  void act();
  void launch();
  void changeSides();
  void endProcess();
  void track();
  Duration nextSession();

  const int number_;
  const Scenario& scenario_;
  const std::shared_ptr<Timeline> timeline_;
  CollectionHost& host_;
  tools::Random random_;              // its own, so that nothing else changes its sequence
  std::unique_ptr<Process> process_;  // null before the first session, and after an end
  std::vector<std::unique_ptr<Process>> ended_;  // silent, but the timeline refers to them
  Duration changesAt_{0};              // when it next enters the foreground or the background
  Duration endsAt_ = Duration::max();  // when its process ends
  std::uint64_t tracked_ = 0, lost_ = 0;
  bool isInForeground_ = false;
  bool hasEnded_ = false;
};

}  // namespace fleet

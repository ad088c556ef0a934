#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/posix/device/clock_and_random.h"
#include "platform/posix/device/host_reports.h"
#include "platform/posix/device/standard_output.h"
#include "platform/posix/http/url_session.h"
#include "platform/posix/storage/bundles.h"
#include "platform/posix/storage/user_defaults.h"
#include "platform/posix/system/thread_key.h"
#include "platform/posix/threads/run_loop.h"
#include "platform/posix/threads/work_queue.h"
#include "veltrano/posix_platform.h"

namespace veltrano::internal {

class ZKAuth final : public UserSessionManager {};

/// The services of a POSIX system as a host's options describe them. Once a library has used them,
/// never destroy them: its threads run until the process ends.
struct PosixServices {
  explicit PosixServices(PosixOptions options);

  Platform platform();

  const std::string collectionHost;
  const std::vector<std::string> withheldProperties;
  PosixClock clock;
  PosixStandardOutput standardOutput;
  PosixWorkQueue workQueue{"com.veltrano"};
  const CallAtThreadEnd callAtThreadEnd = threadEndCaller();
  PosixTimers timers;
  LocalNotificationCenter notificationCenter;
  PosixUserDefaults userDefaults;
  PosixRandomSource randomSource;
  PosixBundles bundles;
  MomentaryFacts momentaryFacts;
  HostReports reports;
  PosixURLSession urlSession;
  ZKAuthTokenRepository tokenRepository;
  ZKAuth auth;
};

}  // namespace veltrano::internal

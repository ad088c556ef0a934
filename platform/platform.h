// The outside world as the library sees it: one small interface for each service. The platform is
// chosen once, before the library first needs it, and stays for the rest of the process.
#pragma once

#include <string>

#include "platform/application.h"
#include "platform/authentication.h"
#include "platform/bundles.h"
#include "platform/clock.h"
#include "platform/connectivity.h"
#include "platform/device.h"
#include "platform/notification_center.h"
#include "platform/random_source.h"
#include "platform/standard_output.h"
#include "platform/telephony.h"
#include "platform/timer.h"
#include "platform/tracking.h"
#include "platform/url_session.h"
#include "platform/user_defaults.h"
#include "platform/work_queue.h"

namespace veltrano {

/// The services of one platform. What they refer to lives until the process ends.
struct Platform {
  std::string collectionHost;  // "host" or "host:port"; both endpoints live there
  WallClock& wallClock;
  StandardOutput& standardOutput;
  Dispatch& dispatch;
  Timers& timers;
  NotificationCenter& notificationCenter;
  UserDefaults& userDefaults;
  RandomSource& randomSource;
  Bundles& bundles;
  Application& application;
  Device& device;
  CTTelephonyNetworkInfo& telephony;
  ATTrackingManager& trackingManager;
  ASIdentifierManager& identifierManager;
  ZKConnectivityManager& connectivity;
  ZKURLSessionManager& urlSession;
  SessionTokenProvider& sessionTokenProvider;
  UserSessionManager& userSessionManager;
};

/// Makes `platform` the process's platform. Refused, with false, when there is one already,
/// installed or (once `platform()` has been called) the inert one. Safe to call from any thread.
[[nodiscard]] bool installPlatform(const Platform& platform);

/// The process's platform. When none has been installed by the first call, that is an inert one for
/// good: it drops work, sends nothing and stores nothing.
const Platform& platform();

}  // namespace veltrano

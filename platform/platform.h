// The outside world as the library sees it: one small interface for each service, which by itself
// does nothing.
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

namespace veltrano::internal {

/// The `Service` that does nothing. Never destroyed.
template <class Service>
Service* nothing() {
  static Service* const instance = new Service;
  return instance;
}

/// The services that a library runs on, none of them null. They must outlive it. A service that is
/// not named does nothing, so `Platform()` drops work, sends nothing and stores nothing.
struct Platform {
  std::string collectionHost = {};  // "host" or "host:port"; both endpoints live there
  WallClock* wallClock = nothing<WallClock>();
  StandardOutput* standardOutput = nothing<StandardOutput>();
  WorkQueue* workQueue = nothing<WorkQueue>();  // for one library alone
  Timers* timers = nothing<Timers>();
  NotificationCenter* notificationCenter = nothing<NotificationCenter>();
  UserDefaults* userDefaults = nothing<UserDefaults>();
  RandomSource* randomSource = nothing<RandomSource>();
  Bundles* bundles = nothing<Bundles>();
  Application* application = nothing<Application>();
  Device* device = nothing<Device>();
  CTTelephonyNetworkInfo* telephony = nothing<CTTelephonyNetworkInfo>();
  ATTrackingManager* trackingManager = nothing<ATTrackingManager>();
  ASIdentifierManager* identifierManager = nothing<ASIdentifierManager>();
  ZKConnectivityManager* connectivity = nothing<ZKConnectivityManager>();
  ZKURLSessionManager* urlSession = nothing<ZKURLSessionManager>();
  SessionTokenProvider* sessionTokenProvider = nothing<SessionTokenProvider>();
  UserSessionManager* userSessionManager = nothing<UserSessionManager>();
};

}  // namespace veltrano::internal

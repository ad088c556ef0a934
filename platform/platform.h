// The library's interface to the outside world: one small class per service, whose defaults are
// no-ops.
#pragma once

#include <string>
#include <vector>

#include "platform/authentication.h"
#include "platform/bundles.h"
#include "platform/clock.h"
#include "platform/device.h"
#include "platform/notification_center.h"
#include "platform/random_source.h"
#include "platform/standard_output.h"
#include "platform/timer.h"
#include "platform/url_session.h"
#include "platform/user_defaults.h"
#include "platform/work_queue.h"

namespace veltrano::internal {

/// The no-op `Service`. Never destroyed.
template <class Service>
Service* nothing() {
  static Service* const instance = new Service;
  return instance;
}

/// Calls `function` when the calling thread ends, after its thread-local destructors. Replaces an
/// earlier function. False if that cannot be arranged.
using CallAtThreadEnd = bool (*)(void (*function)());

/// The services that a library runs on. None is null, and all must outlive the library. Each
/// defaults to a no-op, so `Platform()` drops work, sends nothing and stores nothing.
struct Platform {
  std::string collectionHost = {};                   // "host" or "host:port", of both endpoints
  std::vector<std::string> withheldProperties = {};  // left out of events, at any depth; sorted
  WallClock* wallClock = nothing<WallClock>();
  StandardOutput* standardOutput = nothing<StandardOutput>();
  WorkQueue* workQueue = nothing<WorkQueue>();  // not shared between libraries
  CallAtThreadEnd callAtThreadEnd = [](void (*)()) { return false; };
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
  const MomentaryFacts* momentaryFacts = nullptr;  // null: the services are asked
  ZKConnectivityManager* connectivity = nothing<ZKConnectivityManager>();
  ZKURLSessionManager* urlSession = nothing<ZKURLSessionManager>();
  SessionTokenProvider* sessionTokenProvider = nothing<SessionTokenProvider>();
  UserSessionManager* userSessionManager = nothing<UserSessionManager>();
};

}  // namespace veltrano::internal

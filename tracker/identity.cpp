#include "encoding/utf8.h"
#include "heartbeat/heartbeat_manager.h"
#include "tracker/log.h"
#include "tracker/tracker.h"

namespace veltrano {

void Tracker::setUserId(const std::string& id) {
  if (id.empty()) return;
  log("Setting userid to ", id);
  setSuperProperties({{"uid", id}});
  HeartbeatManager::shared().initialize(id);
}

void Tracker::setAppId(const std::string& id) {
  log("Setting app id to ", id);
  setSuperProperties({{"app_id", id}});
}

void Tracker::setIdfa() {
  const std::string identifier =
      wellFormedUTF8(platform().identifierManager->advertisingIdentifier());
  log("Setting idfa: ", identifier);
  setSuperProperties({{"$ios_ifa", identifier}});
}

void Tracker::setLibVersion(const std::string& version) {
  log("Setting ana lib version to ", version);
  setSuperProperties({{"lib_version", version}});
}

void Tracker::setPublisherUid(const std::optional<std::string>& uid) {
  if (!uid || uid->empty()) return removeSuperProperty("pub_uid");
  log("Setting pub uid to ", *uid);
  setSuperProperties({{"pub_uid", *uid}});
}

}  // namespace veltrano

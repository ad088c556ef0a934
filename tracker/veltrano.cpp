// The public facade. Here a host's text becomes well-formed; the tracker does the rest.
#include "veltrano/veltrano.h"

#include <utility>

#include "properties/utf8.h"
#include "tracker/tracker.h"

using veltrano::HostMap;
using veltrano::Tracker;

namespace {

std::string entering(std::string_view text) {
  return veltrano::wellFormedUTF8(std::string(text));
}

}  // namespace

std::atomic<bool> Veltrano::isLoggerEnabled{false};

Veltrano& Veltrano::shared() {
  static Veltrano& instance = *new Veltrano;
  return instance;
}

Veltrano::Veltrano() {
  Tracker::shared();
}

void Veltrano::setUserId(std::string_view id) {
  Tracker::shared().setUserId(entering(id));
}

void Veltrano::setAppId(std::string_view id) {
  Tracker::shared().setAppId(entering(id));
}

void Veltrano::setIdfa() {
  Tracker::shared().setIdfa();
}

void Veltrano::setLibVersion(std::string_view version) {
  Tracker::shared().setLibVersion(entering(version));
}

void Veltrano::setPublisherUid(std::optional<std::string_view> uid) {
  Tracker::shared().setPublisherUid(uid ? std::optional(entering(*uid)) : std::nullopt);
}

void Veltrano::track(std::string_view eventName, HostMap eventProperties) {
  track(eventName, std::move(eventProperties), nullptr);
}

void Veltrano::track(std::string_view eventName, HostMap eventProperties,
                     FlushCompletion forceFlushCompletion) {
  Tracker::shared().track(entering(eventName), std::move(eventProperties),
                          std::move(forceFlushCompletion));
}

void Veltrano::setSuperProperties(HostMap properties) {
  Tracker::shared().setSuperProperties(std::move(properties));
}

void Veltrano::removeSuperProperty(std::string_view key) {
  Tracker::shared().removeSuperProperty(entering(key));
}

void Veltrano::setRefreshTriggersWithHandler(std::optional<std::vector<std::string>> triggers,
                                             std::function<void()> handler) {
  if (triggers)
    for (std::string& name : *triggers) name = veltrano::wellFormedUTF8(std::move(name));
  Tracker::shared().setRefreshTriggers(triggers, std::move(handler));
}

std::string Veltrano::getScreenOrientation() const {
  return Tracker::shared().getScreenOrientation();
}

std::string Veltrano::getDeviceOrientation() const {
  return Tracker::shared().getDeviceOrientation();
}

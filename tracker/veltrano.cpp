// The public facade. Here a host's text becomes well-formed; the tracker does the rest.
#include "veltrano/veltrano.h"

#include <utility>

#include "encoding/utf8.h"
#include "tracker/library.h"

using veltrano::HostMapView;
using veltrano::Tracker;

namespace {

std::string entering(std::string_view text) {
  return veltrano::wellFormedUTF8(std::string(text));
}

Tracker& tracker() {
  return veltrano::Library::current().tracker();
}

}  // namespace

std::atomic<bool> Veltrano::isLoggerEnabled{false};

Veltrano& Veltrano::shared() {
  static constinit Veltrano instance;
  tracker();
  return instance;
}

void Veltrano::setUserId(std::string_view id) {
  tracker().setUserId(entering(id));
}

void Veltrano::setAppId(std::string_view id) {
  tracker().setAppId(entering(id));
}

void Veltrano::setIdfa() {
  tracker().setIdfa();
}

void Veltrano::setLibVersion(std::string_view version) {
  tracker().setLibVersion(entering(version));
}

void Veltrano::setPublisherUid(std::optional<std::string_view> uid) {
  tracker().setPublisherUid(uid ? std::optional(entering(*uid)) : std::nullopt);
}

void Veltrano::track(std::string_view eventName, const HostMapView& eventProperties,
                     FlushCompletion forceFlushCompletion) {
  tracker().track(eventName, eventProperties, std::move(forceFlushCompletion));
}

void Veltrano::setSuperProperties(const HostMapView& properties) {
  tracker().setSuperProperties(properties);
}

void Veltrano::removeSuperProperty(std::string_view key) {
  tracker().removeSuperProperty(entering(key));
}

void Veltrano::setRefreshTriggersWithHandler(std::optional<std::vector<std::string>> triggers,
                                             std::function<void()> handler) {
  if (triggers)
    for (std::string& name : *triggers) name = veltrano::wellFormedUTF8(std::move(name));
  tracker().setRefreshTriggers(triggers, std::move(handler));
}

std::string Veltrano::getScreenOrientation() const {
  return tracker().getScreenOrientation();
}

std::string Veltrano::getDeviceOrientation() const {
  return tracker().getDeviceOrientation();
}

veltrano::Statistics Veltrano::statistics() const {
  return veltrano::Library::current().accounting().statistics();
}

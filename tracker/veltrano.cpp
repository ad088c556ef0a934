// The public facade. Here a host's text becomes well-formed; the tracker does the rest.
#include "veltrano/veltrano.h"

#include <utility>

#include "encoding/utf8.h"
#include "platform/process.h"
#include "tracker/tracker.h"

using veltrano::HostMapView;
using veltrano::Tracker;

namespace {

std::string entering(std::string_view text) {
  return veltrano::wellFormedUTF8(std::string(text));
}

// The tracker; null in a forked child.
Tracker* tracker() {
  return veltrano::isForkedChild() ? nullptr : &Tracker::shared();
}

}  // namespace

std::atomic<bool> Veltrano::isLoggerEnabled{false};

Veltrano& Veltrano::shared() {
  static constinit Veltrano instance;
  tracker();
  return instance;
}

void Veltrano::setUserId(std::string_view id) {
  if (auto* it = tracker()) it->setUserId(entering(id));
}

void Veltrano::setAppId(std::string_view id) {
  if (auto* it = tracker()) it->setAppId(entering(id));
}

void Veltrano::setIdfa() {
  if (auto* it = tracker()) it->setIdfa();
}

void Veltrano::setLibVersion(std::string_view version) {
  if (auto* it = tracker()) it->setLibVersion(entering(version));
}

void Veltrano::setPublisherUid(std::optional<std::string_view> uid) {
  if (auto* it = tracker()) it->setPublisherUid(uid ? std::optional(entering(*uid)) : std::nullopt);
}

void Veltrano::track(std::string_view eventName, const HostMapView& eventProperties,
                     FlushCompletion forceFlushCompletion) {
  if (auto* it = tracker()) it->track(eventName, eventProperties, std::move(forceFlushCompletion));
}

void Veltrano::setSuperProperties(const HostMapView& properties) {
  if (auto* it = tracker()) it->setSuperProperties(properties);
}

void Veltrano::removeSuperProperty(std::string_view key) {
  if (auto* it = tracker()) it->removeSuperProperty(entering(key));
}

void Veltrano::setRefreshTriggersWithHandler(std::optional<std::vector<std::string>> triggers,
                                             std::function<void()> handler) {
  if (triggers)
    for (std::string& name : *triggers) name = veltrano::wellFormedUTF8(std::move(name));
  if (auto* it = tracker()) it->setRefreshTriggers(triggers, std::move(handler));
}

std::string Veltrano::getScreenOrientation() const {
  auto* it = tracker();
  return it != nullptr ? it->getScreenOrientation() : "unknown";
}

std::string Veltrano::getDeviceOrientation() const {
  auto* it = tracker();
  return it != nullptr ? it->getDeviceOrientation() : "unknown";
}

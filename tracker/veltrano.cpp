// The public facade: repairs the host's text, drops exceptions (memory ran out) and forwards to the
// tracker.
#include "veltrano/veltrano.h"

#include <utility>

#include "encoding/utf8.h"
#include "platform/host_callback.h"
#include "tracker/library.h"

using veltrano::HostMapView;
using veltrano::internal::dropExceptions;
using veltrano::internal::Library;
using veltrano::internal::Tracker;

namespace {

std::string entering(std::string_view text) {
  return veltrano::internal::wellFormedUTF8(text);
}

Tracker& tracker() {
  return Library::current().tracker();
}

}  // namespace

std::atomic<bool> Veltrano::isLoggerEnabled{false};

Veltrano& Veltrano::shared() {
  static constinit Veltrano instance;
  dropExceptions(tracker);
  return instance;
}

void Veltrano::setUserId(std::string_view id) {
  dropExceptions([&] { tracker().setUserId(entering(id)); });
}

void Veltrano::setAppId(std::string_view id) {
  dropExceptions([&] { tracker().setAppId(entering(id)); });
}

void Veltrano::setIdfa() {
  dropExceptions([&] { tracker().setIdfa(); });
}

void Veltrano::setLibVersion(std::string_view version) {
  dropExceptions([&] { tracker().setLibVersion(entering(version)); });
}

void Veltrano::setPublisherUid(std::optional<std::string_view> uid) {
  dropExceptions(
      [&] { tracker().setPublisherUid(uid ? std::optional(entering(*uid)) : std::nullopt); });
}

void Veltrano::track(std::string_view eventName, const HostMapView& eventProperties,
                     FlushCompletion forceFlushCompletion) {
  dropExceptions(
      [&] { tracker().track(eventName, eventProperties, std::move(forceFlushCompletion)); });
}

void Veltrano::setSuperProperties(const HostMapView& properties) {
  dropExceptions([&] { tracker().setSuperProperties(properties); });
}

void Veltrano::removeSuperProperty(std::string_view key) {
  dropExceptions([&] { tracker().removeSuperProperty(entering(key)); });
}

void Veltrano::setRefreshTriggersWithHandler(std::optional<std::vector<std::string>> triggers,
                                             std::function<void()> handler) {
  dropExceptions([&] {
    if (triggers)
      for (std::string& name : *triggers) name = veltrano::internal::wellFormedUTF8(name);
    tracker().setRefreshTriggers(triggers, std::move(handler));
  });
}

std::string Veltrano::getScreenOrientation() const {
  std::string orientation = "unknown";
  dropExceptions([&] { orientation = tracker().getScreenOrientation(); });
  return orientation;
}

std::string Veltrano::getDeviceOrientation() const {
  std::string orientation = "unknown";
  dropExceptions([&] { orientation = tracker().getDeviceOrientation(); });
  return orientation;
}

veltrano::Statistics Veltrano::statistics() const {
  veltrano::Statistics statistics;
  dropExceptions([&] { statistics = Library::current().accounting().statistics(); });
  return statistics;
}

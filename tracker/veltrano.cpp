// The public facade: repairs the host's text, drops exceptions (memory ran out) and forwards to the
// tracker.
#include "veltrano/veltrano.h"

#include <utility>

#include "encoding/utf8.h"
#include "platform/host_callback.h"
#include "tracker/library.h"

using veltrano::HostMapView;
using veltrano::detail::Argument;
using veltrano::internal::CallObserver;
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

// Tells who watches the library of a call that has been made: one from a refresh handler comes
// before the `track` that called it.
void tellOf(std::string_view operation, const HostMapView& arguments = {}) {
  if (CallObserver* const observer = Library::current().observer())
    observer->called(operation, arguments);
}

void tellOf(std::string_view operation, std::string_view name, const Argument& argument) {
  tellOf(operation, {{name, argument}});
}

void tellOfTrack(std::string_view name, const HostMapView& properties, bool isForced) {
  if (CallObserver* const observer = Library::current().observer()) [[unlikely]]
    observer->called(
        "track", {{"name", name}, {"properties", properties.argument()}, {"completion", isForced}});
}

}  // namespace

std::atomic<bool> Veltrano::isLoggerEnabled{false};

Veltrano& Veltrano::shared() {
  static constinit Veltrano instance;
  dropExceptions(tracker);
  return instance;
}

void Veltrano::setUserId(std::string_view id) {
  dropExceptions([&] {
    tracker().setUserId(entering(id));
    tellOf("setUserId", "id", id);
  });
}

void Veltrano::setAppId(std::string_view id) {
  dropExceptions([&] {
    tracker().setAppId(entering(id));
    tellOf("setAppId", "id", id);
  });
}

void Veltrano::setIdfa() {
  dropExceptions([&] {
    tracker().setIdfa();
    tellOf("setIdfa");
  });
}

void Veltrano::setLibVersion(std::string_view version) {
  dropExceptions([&] {
    tracker().setLibVersion(entering(version));
    tellOf("setLibVersion", "version", version);
  });
}

void Veltrano::setPublisherUid(std::optional<std::string_view> uid) {
  dropExceptions([&] {
    tracker().setPublisherUid(uid ? std::optional(entering(*uid)) : std::nullopt);
    tellOf("setPublisherUid", "uid", uid);
  });
}

void Veltrano::track(std::string_view eventName, const HostMapView& eventProperties,
                     FlushCompletion forceFlushCompletion) {
  dropExceptions([&] {
    const bool isForced = forceFlushCompletion != nullptr;
    tracker().track(eventName, eventProperties, std::move(forceFlushCompletion));
    tellOfTrack(eventName, eventProperties, isForced);
  });
}

void Veltrano::setSuperProperties(const HostMapView& properties) {
  dropExceptions([&] {
    tracker().setSuperProperties(properties);
    tellOf("setSuperProperties", "properties", properties.argument());
  });
}

void Veltrano::removeSuperProperty(std::string_view key) {
  dropExceptions([&] {
    tracker().removeSuperProperty(entering(key));
    tellOf("removeSuperProperty", "key", key);
  });
}

void Veltrano::setRefreshTriggersWithHandler(std::optional<std::vector<std::string>> triggers,
                                             std::function<void()> handler) {
  dropExceptions([&] {
    if (triggers)
      for (std::string& name : *triggers) name = veltrano::internal::wellFormedUTF8(name);
    const bool hasHandler = handler != nullptr;
    tracker().setRefreshTriggers(triggers, std::move(handler));
    tellOf("setRefreshTriggers", {{"triggers", triggers}, {"handler", hasHandler}});
  });
}

std::string Veltrano::getScreenOrientation() const {
  std::string orientation = "unknown";
  dropExceptions([&] {
    orientation = tracker().getScreenOrientation();
    tellOf("getScreenOrientation");
  });
  return orientation;
}

std::string Veltrano::getDeviceOrientation() const {
  std::string orientation = "unknown";
  dropExceptions([&] {
    orientation = tracker().getDeviceOrientation();
    tellOf("getDeviceOrientation");
  });
  return orientation;
}

veltrano::Statistics Veltrano::statistics() const {
  veltrano::Statistics statistics;
  dropExceptions([&] { statistics = Library::current().accounting().statistics(); });
  return statistics;
}

std::string Veltrano::status() {
  std::string text;
  dropExceptions([&] { text = Library::status(); });
  return text;
}

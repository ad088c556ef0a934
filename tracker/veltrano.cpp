// The public facade: repairs the host's text, drops exceptions (memory ran out) and forwards to the
// tracker. `shared` and `track` are in event_recording.cpp.
#include "veltrano/veltrano.h"

#include <utility>

#include "encoding/utf8.h"
#include "platform/host_callback.h"
#include "tracker/library.h"

using namespace veltrano;
using namespace veltrano::internal;

namespace {

std::string repaired(std::string_view text) {
  return wellFormedUTF8(text);
}

// Calls `function` with the tracker, then reports the call to the observer. Calls made by a refresh
// handler are reported before their `track`.
template <class Function>
void call(std::string_view operation, const HostMapView& arguments, Function function) {
  dropExceptions([&] {
    function(Library::current().tracker());
    if (CallObserver* const observer = Library::current().observer())
      observer->called(operation, arguments);
  });
}

}  // namespace

std::atomic<bool> Veltrano::isLoggerEnabled{false};

void Veltrano::setUserId(std::string_view id) {
  call("setUserId", {{"id", id}}, [&](Tracker& tracker) { tracker.setUserId(repaired(id)); });
}

void Veltrano::setAppId(std::string_view id) {
  call("setAppId", {{"id", id}}, [&](Tracker& tracker) { tracker.setAppId(repaired(id)); });
}

void Veltrano::setIdfa() {
  call("setIdfa", {}, [](Tracker& tracker) { tracker.setIdfa(); });
}

void Veltrano::setLibVersion(std::string_view version) {
  call("setLibVersion", {{"version", version}},
       [&](Tracker& tracker) { tracker.setLibVersion(repaired(version)); });
}

void Veltrano::setPublisherUid(std::optional<std::string_view> uid) {
  call("setPublisherUid", {{"uid", uid}}, [&](Tracker& tracker) {
    tracker.setPublisherUid(uid ? std::optional(repaired(*uid)) : std::nullopt);
  });
}

void Veltrano::setSuperProperties(const HostMapView& properties) {
  call("setSuperProperties", {{"properties", properties.argument()}},
       [&](Tracker& tracker) { tracker.setSuperProperties(properties); });
}

void Veltrano::removeSuperProperty(std::string_view key) {
  call("removeSuperProperty", {{"key", key}},
       [&](Tracker& tracker) { tracker.removeSuperProperty(repaired(key)); });
}

void Veltrano::setRefreshTriggersWithHandler(std::optional<std::vector<std::string>> triggers,
                                             std::function<void()> handler) {
  const bool hasHandler = handler != nullptr;
  if (CallObserver* const observer = hasHandler ? Library::current().observer() : nullptr)
    dropExceptions([&] { observer->given(handler); });
  call("setRefreshTriggers", {{"triggers", triggers}, {"handler", hasHandler}},
       [&](Tracker& tracker) {
         if (triggers)
           for (std::string& name : *triggers) name = repaired(name);
         tracker.setRefreshTriggers(triggers, std::move(handler));
       });
}

void Veltrano::setCollecting(bool isOn) {
  call("setCollecting", {{"on", isOn}}, [&](Tracker&) { Library::current().setCollecting(isOn); });
}

std::string Veltrano::getScreenOrientation() const {
  std::string orientation = "unknown";
  call("getScreenOrientation", {},
       [&](Tracker& tracker) { orientation = tracker.getScreenOrientation(); });
  return orientation;
}

std::string Veltrano::getDeviceOrientation() const {
  std::string orientation = "unknown";
  call("getDeviceOrientation", {},
       [&](Tracker& tracker) { orientation = tracker.getDeviceOrientation(); });
  return orientation;
}

Statistics Veltrano::statistics() const {
  Statistics statistics;
  dropExceptions([&] {
    Library& library = Library::current();
    library.tracker().readCalls();
    statistics = library.accounting().statistics();
  });
  return statistics;
}

std::string Veltrano::status() {
  std::string text;
  dropExceptions([&] { text = Library::status(); });
  return text;
}

// The tracker's operations, with plain C arguments.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

#include "c_interface/handles.h"
#include "properties/flat.h"
#include "veltrano/veltrano.h"

using namespace veltrano;
using namespace veltrano::internal;

namespace {

// False, for a call that does nothing.
bool refuse(std::string_view operation, std::size_t argument) {
  noteRefusal(operation, argument);
  return false;
}

bool callWithText(const char* name, void (Veltrano::*operation)(std::string_view),
                  const char* text) {
  return guarded(false, [&] {
    if (text == nullptr) return refuse(name, 0);
    return (Veltrano::shared().*operation)(text), true;
  });
}

// The orientation as a string literal, so that hosts have nothing to release.
const char* lastingText(std::string (Veltrano::*orientation)() const) {
  constexpr const char* kTexts[] = {"portrait",      "landscape",      "portraitUpsideDown",
                                    "landscapeLeft", "landscapeRight", "faceUp",
                                    "faceDown",      "unknown"};
  return guarded(kTexts[7], [&] {
    return *std::find(std::begin(kTexts), std::end(kTexts) - 1,
                      (Veltrano::shared().*orientation)());
  });
}

// An array of entries, which `track` reads in place. A host that was built with a newer header has
// longer ones.
struct Entries {
  bool areValid() const {
    if (count == 0) return true;
    if (first == nullptr || size < sizeof(veltrano_entry)) return false;
    for (std::size_t i = 0; i < count; ++i)
      if ((*this)[i].name == nullptr || (*this)[i].kind > VELTRANO_OBJECT ||
          (*this)[i].reserved != 0)
        return false;
    return true;
  }

  HostMapView view() const {
    const auto append = [](detail::FlatWriter& writer, const void* object) {
      const Entries& entries = *static_cast<const Entries*>(object);
      const auto dictionary = writer.open(Kind::Dictionary);
      for (std::size_t i = 0; i < entries.count; ++i)
        writer.entry(entries[i].name, value(entries[i]));
      writer.close(dictionary);
    };
    return HostMapView(detail::Argument(append, this));
  }

  const veltrano_entry& operator[](std::size_t index) const {
    return *reinterpret_cast<const veltrano_entry*>(first + index * size);
  }

  static detail::Argument value(const veltrano_entry& entry) {
    const auto& value = entry.value;
    switch (static_cast<veltrano_kind>(entry.kind)) {
      case VELTRANO_TEXT:
        return value.text;
      case VELTRANO_TEXT_WITH_LENGTH:
        if (value.text_with_length.bytes == nullptr) return {};
        return internal::view(value.text_with_length);
      case VELTRANO_INT:
        return value.integer;
      case VELTRANO_UINT:
        return value.natural;
      case VELTRANO_INT64:
        return Int64{value.integer};
      case VELTRANO_DOUBLE:
        return value.real;
      case VELTRANO_FLOAT:
        return static_cast<float>(value.real);
      case VELTRANO_BOOL:
        return value.boolean;
      case VELTRANO_DATE:
        return Date::fromSecondsSince1970(value.real);
      case VELTRANO_URL:
        return detail::FlatAccess::url(value.text);
      case VELTRANO_NULL:
        return NSNull();
      case VELTRANO_OBJECT:
        break;
    }
    return argumentOf(value.object);
  }

  const char* first;
  std::size_t count;
  std::size_t size;
};

void track(const char* name, const HostMapView& properties, void (*completion)(void*, bool),
           void* context) {
  Veltrano::FlushCompletion flush;
  if (completion != nullptr)
    flush = [completion, context](bool accepted) { completion(context, accepted); };
  Veltrano::shared().track(name, properties, std::move(flush));
}

}  // namespace

const char* veltrano_version(void) {
  return VELTRANO_VERSION;
}

bool veltrano_track(const char* name, const veltrano_object* properties,
                    void (*completion)(void*, bool), void* context) {
  return guarded(false, [&] {
    const auto map = propertiesOf(properties);
    if (name == nullptr) return refuse("veltrano_track", 0);
    if (properties != nullptr && !map) return refuse("veltrano_track", 1);
    track(name, map.value_or(HostMapView()), completion, context);
    return true;
  });
}

bool veltrano_track_entries(const char* name, const veltrano_entry* entries, size_t count,
                            size_t entrySize, void (*completion)(void*, bool), void* context) {
  return guarded(false, [&] {
    const Entries properties{reinterpret_cast<const char*>(entries), count, entrySize};
    if (name == nullptr) return refuse("veltrano_track_entries", 0);
    if (!properties.areValid()) return refuse("veltrano_track_entries", 1);
    track(name, properties.view(), completion, context);
    return true;
  });
}

bool veltrano_set_user_id(const char* id) {
  return callWithText(__func__, &Veltrano::setUserId, id);
}

bool veltrano_set_app_id(const char* id) {
  return callWithText(__func__, &Veltrano::setAppId, id);
}

bool veltrano_set_lib_version(const char* version) {
  return callWithText(__func__, &Veltrano::setLibVersion, version);
}

bool veltrano_set_idfa(void) {
  return guarded(false, [] { return Veltrano::shared().setIdfa(), true; });
}

bool veltrano_set_publisher_uid(const char* uid) {
  return guarded(false, [&] {
    // A missing uid means the same as an empty one.
    Veltrano::shared().setPublisherUid(std::string_view(uid != nullptr ? uid : ""));
    return true;
  });
}

bool veltrano_set_super_properties(const veltrano_object* properties) {
  return guarded(false, [&] {
    const auto map = propertiesOf(properties);
    if (!map) return refuse("veltrano_set_super_properties", 0);
    return Veltrano::shared().setSuperProperties(*map), true;
  });
}

bool veltrano_remove_super_property(const char* key) {
  return callWithText(__func__, &Veltrano::removeSuperProperty, key);
}

bool veltrano_set_refresh_triggers(const char* const* names, size_t count, void (*handler)(void*),
                                   void* context) {
  return guarded(false, [&] {
    std::optional<std::vector<std::string>> triggers;
    if (names != nullptr) {
      if (std::find(names, names + count, nullptr) != names + count)
        return refuse("veltrano_set_refresh_triggers", 0);
      triggers.emplace(names, names + count);
    }
    std::function<void()> refresh;
    if (handler != nullptr) refresh = [handler, context] { handler(context); };
    Veltrano::shared().setRefreshTriggersWithHandler(std::move(triggers), std::move(refresh));
    return true;
  });
}

bool veltrano_set_collecting(bool on) {
  return guarded(false, [&] { return Veltrano::shared().setCollecting(on), true; });
}

const char* veltrano_screen_orientation(void) {
  return lastingText(&Veltrano::getScreenOrientation);
}

const char* veltrano_device_orientation(void) {
  return lastingText(&Veltrano::getDeviceOrientation);
}

bool veltrano_is_logger_enabled(void) {
  return Veltrano::isLoggerEnabled;
}

void veltrano_set_logger_enabled(bool enabled) {
  Veltrano::isLoggerEnabled = enabled;
}

bool veltrano_get_statistics(veltrano_statistics* statistics) {
  if (statistics == nullptr || statistics->size == 0) return false;
  return guarded(false, [&] {
    // The same counts in the same order, for good: both structs only grow at their ends.
    constexpr std::size_t kFirst = offsetof(veltrano_statistics, recorded);
    static_assert(kFirst + offsetof(Statistics, droppedByTrimming) ==
                  offsetof(veltrano_statistics, dropped_by_trimming));
    static_assert(kFirst + offsetof(Statistics, uploadsAttempted) ==
                  offsetof(veltrano_statistics, uploads_attempted));
    static_assert(kFirst + offsetof(Statistics, heartbeatsSent) ==
                  offsetof(veltrano_statistics, heartbeats_sent));
    static_assert(kFirst + offsetof(Statistics, droppedByOptOut) ==
                  offsetof(veltrano_statistics, dropped_by_opt_out));
    static_assert(kFirst + sizeof(Statistics) == sizeof(veltrano_statistics));
    const Statistics now = Veltrano::shared().statistics();
    veltrano_statistics counts{};
    counts.size = statistics->size;
    std::memcpy(reinterpret_cast<char*>(&counts) + kFirst, &now, sizeof now);
    // A host built with an older header has room for fewer fields.
    std::memcpy(statistics, &counts, std::min(statistics->size, sizeof counts));
    return true;
  });
}

size_t veltrano_status(char* buffer, size_t size) {
  return guarded(std::size_t{0}, [&] {
    const std::string text = Veltrano::status();
    if (buffer != nullptr && size > 0) buffer[text.copy(buffer, size - 1)] = '\0';
    return text.size();
  });
}

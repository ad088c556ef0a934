#include "tracker/event_encoder.h"

#include <algorithm>

#include "encoding/utf8.h"
#include "properties/json_value_writer.h"

namespace veltrano::internal {
namespace {

constexpr std::string_view kTimeKey = "time";
constexpr std::string_view kWiFiKey = "$wifi";
constexpr std::string_view kCarrierKey = "$carrier";
constexpr std::string_view kExtraKey = "extra_json";
constexpr std::string_view kStatusKey = "att_auth_status";

void writeText(JSONWriter& writer, std::string_view text) {
  withWellFormed(text, [&](std::string_view wellFormed) { writer.string(wellFormed); });
}

// `value` as properties; empty unless it is a map.
PropertyView extraIn(std::optional<FlatView> value) {
  const auto extra = value ? asProperties(*value) : std::nullopt;
  return extra.value_or(PropertyView({}));
}

}  // namespace

void EventEncoder::setBase(const PropertyMap& defaultProperties,
                           const PropertyMap& superProperties) {
  own_.clear();
  baseJSON_.clear();
  baseCanBeEncoded_ = true;
  replacesAny_ = false;
  baseExtra_ = PropertyMap(extraIn(superProperties.find(kExtraKey)));
  for (const auto& [key, value] : defaultProperties + superProperties) {
    if (key == kExtraKey || copier_.isWithheld(key)) continue;
    writer_.clear();
    writer_.startObject();
    writer_.key(key);
    const bool canBeEncoded = writeValue(value, false);
    writer_.endObject();
    const std::string_view object = writer_.text();
    const std::string_view member = object.substr(1, object.size() - 2);
    own_.push_back({std::string(key), std::string(member), canBeEncoded});
    if (!baseJSON_.empty()) baseJSON_ += ',';
    baseJSON_ += member;
    baseCanBeEncoded_ = baseCanBeEncoded_ && canBeEncoded;
  }
  const auto place = [this](std::string_view key) {
    return std::lower_bound(own_.begin(), own_.end(), key,
                            [](const OwnProperty& l, std::string_view r) { return l.key < r; });
  };
  constexpr std::string_view kAutomatic[] = {kTimeKey, kWiFiKey, kCarrierKey, kExtraKey};
  for (const auto key : kAutomatic)
    if (const auto at = place(key); at == own_.end() || at->key != key)
      own_.insert(at, {std::string(key), {}});
  time_ = &*place(kTimeKey);
  wifi_ = &*place(kWiFiKey);
  carrier_ = &*place(kCarrierKey);
}

EventRecord EventEncoder::encode(std::string_view eventName, const AutomaticProperties& automatic,
                                 FlatView carrier, FlatView given) {
  copier_.sortEntries(given, given_);
  markReplaced();

  writer_.clear();
  writer_.startObject();
  writer_.key("event");
  writeText(writer_, eventName);
  writer_.key("properties");
  writer_.startObject();
  writeAutomatic(automatic, carrier);
  if (!writeBase() || !writeGiven() || !writeExtra(automatic.trackingAuthorizationStatus))
    return {};
  writer_.endObject();
  writer_.endObject();
  return {std::string(writer_.text())};
}

// Both sides are sorted by key.
void EventEncoder::markReplaced() {
  if (replacesAny_)
    for (OwnProperty& property : own_) property.isReplaced = false;
  replacesAny_ = false;
  auto property = own_.begin();
  for (const auto& [key, value] : given_) {
    while (property != own_.end() && compareTexts(property->key, key) < 0) ++property;
    if (property == own_.end()) return;
    if (property->key == key) replacesAny_ = property->isReplaced = true;
  }
}

void EventEncoder::writeAutomatic(const AutomaticProperties& automatic, FlatView carrier) {
  const auto isWritten = [this](const OwnProperty* p) {
    return p->json.empty() && !p->isReplaced && !copier_.isWithheld(p->key);
  };
  if (isWritten(time_)) {
    writer_.key(kTimeKey);
    writer_.integer(automatic.timeInMilliseconds);
  }
  if (isWritten(wifi_)) {
    writer_.key(kWiFiKey);
    writer_.boolean(automatic.isOnWiFi);
  }
  if (carrier.kind() == Kind::String && isWritten(carrier_)) {
    writer_.key(kCarrierKey);
    writeText(writer_, carrier.text());
  }
}

bool EventEncoder::writeBase() {
  if (!replacesAny_) {
    if (!baseJSON_.empty()) writer_.members(baseJSON_);
    return baseCanBeEncoded_;
  }
  for (const OwnProperty& property : own_) {
    if (property.json.empty() || property.isReplaced) continue;
    if (!property.canBeEncoded) return false;
    writer_.members(property.json);
  }
  return true;
}

bool EventEncoder::writeGiven() {
  for (const auto& [key, value] : given_) {
    if (key == kExtraKey) continue;
    writer_.key(key);
    if (!writeValue(value, true)) return false;
  }
  return true;
}

bool EventEncoder::writeExtra(std::uint64_t trackingAuthorizationStatus) {
  if (copier_.isWithheld(kExtraKey)) return true;
  writer_.key(kExtraKey);
  writer_.startObject();
  if (baseExtra_.empty() && !replacesAny_ && !copier_.isWithheld(kStatusKey)) {
    writer_.key(kStatusKey);
    writer_.unsignedInteger(trackingAuthorizationStatus);
  } else {
    FlatBuffer status;
    status.text(Kind::String, kStatusKey);
    status.value(trackingAuthorizationStatus);
    const PropertyMap automatic{PropertyView(status.bytes())};
    FlatBuffer given;
    for (const auto& [key, value] : given_)
      if (key == kExtraKey) copier_.convert(given, value);
    const auto value =
        given.bytes().empty() ? std::nullopt : std::optional<FlatView>(given.bytes().data());
    for (const auto& [key, member] : automatic + baseExtra_ + extraIn(value)) {
      if (copier_.isWithheld(key)) continue;
      writer_.key(key);
      if (!writeValue(member, false)) return false;
    }
  }
  writer_.endObject();
  return true;
}

bool EventEncoder::writeValue(FlatView value, bool converts) {
  JSONValueWriter writer(writer_);
  if (converts)
    copier_.convert(writer, value);
  else
    copier_.normalise(writer, value);
  return writer.isGood();
}

}  // namespace veltrano::internal

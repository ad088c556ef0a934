#include "platform/objects.h"

namespace veltrano {

Object::Object(HostValue value) {
  if (!value.isAbsent()) content_ = std::make_shared<const Content>(std::move(value));
}

Object::Object(Block block) {
  if (block) content_ = std::make_shared<const Content>(std::move(block));
}

Object::Object(BooleanBlock block) {
  if (block) content_ = std::make_shared<const Content>(std::move(block));
}

HostValue Object::value() const {
  if (isNil()) return std::nullopt;
  if (const auto* value = getIf<HostValue>()) return *value;
  return OtherObject{};
}

const SupportedParameterType* Object::member() const noexcept {
  const auto* value = getIf<HostValue>();
  return value != nullptr ? value->member() : nullptr;
}

const std::string* Object::text() const noexcept {
  return member() != nullptr ? member()->getIf<std::string>() : nullptr;
}

std::optional<HostMap> Object::map() const {
  const auto* dictionary = member() != nullptr ? member()->getIf<Dictionary>() : nullptr;
  if (dictionary == nullptr || !dictionary->hasOnlyStringKeys()) return std::nullopt;
  HostMap map;
  for (const auto& [key, value] : *dictionary) map.set(*key.member()->getIf<std::string>(), value);
  return map;
}

Object MutableDictionary::copy() const {
  std::vector<DictionaryEntry> entries;
  entries.reserve(entries_.size());
  for (const auto& [key, value] : entries_) entries.push_back({key, value});
  return Object(HostValue(Dictionary(std::move(entries))));
}

}  // namespace veltrano

#include "c_interface/host_object.h"

#include <utility>

#include "properties/flat_copier.h"
#include "properties/property_map.h"

namespace veltrano::internal {

using detail::FlatAccess;

namespace {

std::optional<HostMap> mapIn(const HostValue& value) {
  if (!asProperties(viewOf(value))) return std::nullopt;
  return FlatAccess::make<HostMap>(FlatAccess::flat(value));
}

}  // namespace

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

std::optional<std::string_view> Object::text() const noexcept {
  if (member() == nullptr || viewOf(*member()).kind() != Kind::String) return std::nullopt;
  return viewOf(*member()).text();
}

std::optional<HostMap> Object::map() const {
  const auto* value = getIf<HostValue>();
  return value != nullptr ? mapIn(*value) : std::nullopt;
}

void MutableArray::append(const detail::Argument& element) {
  FlatBuffer appended(1);
  appended.value(element);
  appendToContainer(FlatAccess::flat(array_).bytes(), appended);
}

void MutableDictionary::set(const detail::Argument& key, const detail::Argument& value) {
  FlatBuffer entry(1);
  entry.value(key);
  entry.value(value);
  std::string& bytes = FlatAccess::flat(dictionary_).bytes();
  appendToContainer(bytes, entry);
  removeReplacedEntries(bytes, sizeWhenTidy_, 0);
}

std::optional<HostMap> MutableDictionary::map() const {
  return mapIn(dictionary_);
}

Object MutableDictionary::copy() const {
  return Object(*dictionary_.member()->getIf<Dictionary>());
}

}  // namespace veltrano::internal

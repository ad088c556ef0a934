#include "c_interface/host_object.h"

#include <utility>

#include "properties/flat_copier.h"
#include "properties/property_map.h"

namespace veltrano::internal {

using detail::FlatAccess;

Object::Object(HostValue value) {
  if (!value.isAbsent()) content_ = std::make_shared<const Content>(std::move(value));
}

const SupportedParameterType* Object::member() const noexcept {
  const auto* value = getIf<HostValue>();
  return value != nullptr ? value->member() : nullptr;
}

std::optional<std::string_view> Object::text() const noexcept {
  if (member() == nullptr || viewOf(*member()).kind() != Kind::String) return std::nullopt;
  return viewOf(*member()).text();
}

std::optional<HostMapView> Object::properties() const {
  const auto* value = getIf<HostValue>();
  if (value == nullptr || !asProperties(viewOf(*value))) return std::nullopt;
  return HostMapView(detail::FromFlat(), *value);
}

detail::Argument Object::argument() const {
  if (isNil()) return {};
  if (const auto* value = getIf<HostValue>()) return *value;
  return OtherObject{};
}

void MutableArray::append(const detail::Argument& element) {
  FlatBuffer appended(1);
  appended.value(element);
  appendToContainer(FlatAccess::flat(array_).bytes(), appended);
}

void MutableDictionary::set(const Object& key, const detail::Argument& value) {
  add(key.argument(), value);
  hasOnlyStringKeys_ &= key.text().has_value();
}

void MutableDictionary::add(const detail::Argument& key, const detail::Argument& value) {
  FlatBuffer entry(1);
  entry.value(key);
  entry.value(value);
  std::string& bytes = FlatAccess::flat(dictionary_).bytes();
  constexpr std::size_t kOfAFewEntries = 200;
  if (bytes.capacity() < kOfAFewEntries) bytes.reserve(kOfAFewEntries);
  appendToContainer(bytes, entry);
  removeReplacedEntries(bytes, sizeWhenTidy_, 0);
}

std::optional<HostMapView> MutableDictionary::properties() const {
  if (!hasOnlyStringKeys_) return std::nullopt;
  return HostMapView(detail::FromFlat(), dictionary_);
}

}  // namespace veltrano::internal

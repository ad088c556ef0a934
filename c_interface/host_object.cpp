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

void MutableCollection::set(std::string_view key, const detail::Argument& value) {
  if (FlatAccess::mayLieInCollection(value)) return add({key, value});
  const auto whole = open();
  contents_.entry(key, value);
  contents_.close(whole);
}

void MutableCollection::set(const Object& key, const detail::Argument& value) {
  add({key.argument(), value});
  hasOnlyStringKeys_ &= key.text().has_value();
}

// Copies them first, because one may be this collection, which moves as it grows.
void MutableCollection::add(std::initializer_list<detail::Argument> values) {
  FlatBuffer copies(1);
  for (const auto& value : values) copies.value(value);
  const auto whole = open();
  for (const FlatView copy : FlatContents(copies.bytes())) contents_.flat(copy.data());
  contents_.close(whole);
}

// Tidies up now: once an entry has been added, nothing may fail.
FlatWriter::Container MutableCollection::open() {
  if (kind() == Kind::Dictionary && isUntidy(contents_.bytes().size(), sizeWhenTidy_)) {
    FlatBuffer tidy;
    FlatCopier().normalise(tidy, view());
    contents_.assign(tidy);
    sizeWhenTidy_ = contents_.bytes().size();
  }
  return contents_.reopen();
}

std::optional<HostMapView> MutableCollection::properties() const {
  if (kind() != Kind::Dictionary || !hasOnlyStringKeys_) return std::nullopt;
  return HostMapView(detail::FromFlat(), argument());
}

Object MutableCollection::copy() const {
  FlatBuffer copy;
  FlatCopier().normalise(copy, view());
  return Object(memberOf(FlatView(copy.bytes().data())));
}

}  // namespace veltrano::internal

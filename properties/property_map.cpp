#include "properties/property_map.h"

#include "properties/flat_copier.h"
#include "veltrano/value.h"

namespace veltrano::internal {

std::optional<FlatView> PropertyView::find(std::string_view key) const {
  for (const auto& [own, value] : *this)
    if (own == key) return value;
  return std::nullopt;
}

std::optional<std::string> PropertyMap::text(std::string_view key) const {
  const auto value = find(key);
  if (!value || value->kind() != Kind::String) return std::nullopt;
  return std::string(value->text());
}

std::optional<SupportedParameterType> PropertyMap::remove(std::string_view key) {
  FlatBuffer remaining;
  std::optional<SupportedParameterType> removed;
  for (const auto& [own, value] : *this) {
    if (own == key) {
      removed = memberOf(value);
    } else {
      remaining.text(Kind::String, own);
      remaining.flat(value.data());
    }
  }
  bytes_ = remaining.bytes();
  return removed;
}

PropertyMap operator+(const PropertyMap& left, PropertyView right) {
  FlatBuffer merged;
  auto l = left.begin();
  const auto take = [&](const PropertyView::Entry& entry) {
    merged.text(Kind::String, entry.key);
    merged.flat(entry.value.data());
  };
  for (const auto& entry : right) {
    for (; l != left.end() && (*l).key < entry.key; ++l) take(*l);
    if (l != left.end() && (*l).key == entry.key) ++l;
    take(entry);
  }
  for (; l != left.end(); ++l) take(*l);
  return PropertyMap(PropertyView(merged.bytes()));
}

std::optional<PropertyView> asProperties(FlatView value) {
  if (value.kind() != Kind::Dictionary || !hasOnlyStringKeys(value)) return std::nullopt;
  return PropertyView(value.contents().bytes());
}

SupportedParameterType memberOf(FlatView value) {
  Flat flat(Kind::Absent);
  flat.bytes().assign(value.bytes());
  return detail::FlatAccess::make<SupportedParameterType>(std::move(flat));
}

}  // namespace veltrano::internal

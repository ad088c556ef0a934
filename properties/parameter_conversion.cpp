#include "properties/parameter_conversion.h"

#include "properties/flat_copier.h"
#include "veltrano/value.h"

namespace veltrano::internal {

std::optional<SupportedParameterType> ParameterConversion::convert(const HostValue& value) {
  FlatBuffer converted;
  if (!FlatCopier().convert(converted, viewOf(value))) return std::nullopt;
  return memberOf(FlatView(converted.bytes().data()));
}

std::optional<PropertyMap> ParameterConversion::convert(const HostMap& dictionary) {
  if (dictionary.empty()) return std::nullopt;
  FlatBuffer converted;
  FlatCopier copier;
  std::vector<PropertyView::Entry> entries;
  copier.sortEntries(viewOf(dictionary), entries);
  for (const auto& [key, value] : entries) {
    converted.text(Kind::String, key);
    copier.convert(converted, value);
  }
  return PropertyMap(PropertyView(converted.bytes()));
}

}  // namespace veltrano::internal

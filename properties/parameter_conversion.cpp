#include "properties/parameter_conversion.h"

#include "properties/flat_copier.h"

namespace veltrano {

std::optional<SupportedParameterType> ParameterConversion::convert(const HostValue& value) {
  FlatBuffer converted;
  if (!FlatCopier().convert(converted, viewOf(value))) return std::nullopt;
  return memberOf(FlatView(converted.bytes().data()));
}

std::optional<PropertyMap> ParameterConversion::convert(const HostMap& dictionary) {
  if (dictionary.empty()) return std::nullopt;
  FlatBuffer converted;
  FlatCopier().convertEntries(converted, viewOf(dictionary));
  return PropertyMap(PropertyView(converted.bytes()));
}

}  // namespace veltrano

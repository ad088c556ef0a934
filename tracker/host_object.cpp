#include "tracker/host_object.h"

#include <utility>

#include "properties/flat_copier.h"

namespace veltrano::internal {

using detail::FlatAccess;

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
  if (member() == nullptr || viewOf(*member()).kind() != Kind::Dictionary ||
      !hasOnlyStringKeys(viewOf(*member()))) {
    return std::nullopt;
  }
  return FlatAccess::make<HostMap>(FlatAccess::flat(*member()));
}

void MutableArray::append(const Object& element) {
  FlatBuffer appended(1);
  appended.value(element.value());
  appendToContainer(FlatAccess::flat(array_).bytes(), appended);
}

void MutableDictionary::set(const Object& key, const Object& value) {
  FlatBuffer entry(1);
  entry.value(key.value());
  entry.value(value.value());
  std::string& bytes = FlatAccess::flat(dictionary_).bytes();
  appendToContainer(bytes, entry);
  // So that values which have been replaced do not pile up.
  constexpr std::size_t kFewBytes = 1024;
  if (bytes.size() < 2 * sizeWhenTidy_ + kFewBytes) return;
  dictionary_ = *dictionary_.member()->getIf<Dictionary>();
  sizeWhenTidy_ = FlatAccess::flat(dictionary_).bytes().size();
}

Object MutableDictionary::copy() const {
  return Object(*dictionary_.member()->getIf<Dictionary>());
}

}  // namespace veltrano::internal

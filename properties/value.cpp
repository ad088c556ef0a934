#include "veltrano/value.h"

#include <algorithm>

#include "encoding/utf8.h"
#include "properties/flat.h"
#include "properties/flat_copier.h"

namespace veltrano {

using namespace internal;

namespace {

using detail::Argument;
using detail::FlatAccess;

template <class Write>
Flat written(int level, Write write) {
  FlatBuffer buffer(level);
  write(buffer);
  Flat flat(Kind::Absent);
  flat.bytes().assign(buffer.bytes());
  return flat;
}

Flat normalised(FlatView value, int level = 0) {
  return written(level, [&](FlatWriter& writer) { FlatCopier().normalise(writer, value); });
}

HostValue hostValue(FlatView value) {
  return FlatAccess::make<HostValue>(
      written(0, [&](FlatWriter& writer) { writer.flat(value.data()); }));
}

std::string textOf(FlatView value) {
  return wellFormedUTF8(value.text());
}

const char* beginOf(const Flat& container) {
  return FlatView(container.bytes()).contents().bytes().data();
}

const char* endOf(const Flat& container) {
  return container.bytes().data() + container.bytes().size();
}

template <class Container>
std::size_t count(const Container& container) {
  return static_cast<std::size_t>(std::distance(container.begin(), container.end()));
}

bool hasOnlyMembers(const Flat& container) {
  const FlatContents contents = FlatView(container.bytes()).contents();
  return std::all_of(contents.begin(), contents.end(), [](FlatView v) { return v.isMember(); });
}

}  // namespace

namespace detail {

template <class Entry>
FlatIterator<Entry>& FlatIterator<Entry>::operator++() {
  at_ += FlatView(at_).bytes().size();
  if constexpr (!std::is_same_v<Entry, HostValue>) at_ += FlatView(at_).bytes().size();
  return *this;
}

template <class Entry>
Entry FlatIterator<Entry>::operator*() const {
  const FlatView first(at_);
  if constexpr (std::is_same_v<Entry, HostValue>) {
    return hostValue(first);
  } else {
    const FlatView second(at_ + first.bytes().size());
    if constexpr (std::is_same_v<Entry, HostMapEntry>)
      return {textOf(first), hostValue(second)};
    else
      return {hostValue(first), hostValue(second)};
  }
}

template class FlatIterator<HostValue>;
template class FlatIterator<DictionaryEntry>;
template class FlatIterator<HostMapEntry>;

}  // namespace detail

Array::Array(std::initializer_list<detail::ArrayElement> elements) : flat_(Argument(elements)) {}

Array::Array(const std::vector<HostValue>& elements) : flat_(Argument(elements)) {}

Array::const_iterator Array::begin() const {
  return const_iterator(beginOf(flat_));
}
Array::const_iterator Array::end() const {
  return const_iterator(endOf(flat_));
}
std::size_t Array::size() const {
  return count(*this);
}

bool Array::isValidNestedType() const {
  return hasOnlyMembers(flat_);
}

Dictionary::Dictionary(std::initializer_list<detail::MapElement> entries)
    : Dictionary(HostMap(entries)) {}

Dictionary::Dictionary(const HostMap& entries) : flat_(normalised(viewOf(entries))) {}

Dictionary::Dictionary(const std::vector<DictionaryEntry>& entries)
    : flat_(written(0, [&](FlatWriter& writer) {
        const auto dictionary = writer.open(Kind::Dictionary);
        for (const auto& [key, value] : entries) {
          writer.value(key);
          writer.value(value);
        }
        writer.close(dictionary);
      })) {
  flat_ = normalised(FlatView(flat_.bytes()));
}

Dictionary::const_iterator Dictionary::begin() const {
  return const_iterator(beginOf(flat_));
}
Dictionary::const_iterator Dictionary::end() const {
  return const_iterator(endOf(flat_));
}
std::size_t Dictionary::size() const {
  return count(*this);
}

bool Dictionary::hasOnlyStringKeys() const {
  return veltrano::hasOnlyStringKeys(FlatView(flat_.bytes()));
}

bool Dictionary::isValidNestedType() const {
  return hasOnlyStringKeys() && hasOnlyMembers(flat_);
}

bool SupportedParameterType::isValidNestedType() const {
  if (flat_.kind() == Kind::Array) return hasOnlyMembers(flat_);
  if (const auto dictionary = getIf<veltrano::Dictionary>()) return dictionary->isValidNestedType();
  return true;
}

template <class T>
std::optional<T> SupportedParameterType::getIf() const {
  const FlatView value(flat_.bytes());
  const auto when = [&](Kind kind, auto read) {
    return value.kind() == kind ? std::optional<T>(read()) : std::nullopt;
  };
  if constexpr (std::is_same_v<T, std::string>)
    return when(Kind::String, [&] { return textOf(value); });
  else if constexpr (std::is_same_v<T, std::int64_t>)
    return when(Kind::Int, [&] { return value.integer(); });
  else if constexpr (std::is_same_v<T, std::uint64_t>)
    return when(Kind::UInt, [&] { return static_cast<T>(value.integer()); });
  else if constexpr (std::is_same_v<T, veltrano::Int64>)
    return when(Kind::Int64, [&] { return T{value.integer()}; });
  else if constexpr (std::is_same_v<T, double>)
    return when(Kind::Double, [&] { return value.real(); });
  else if constexpr (std::is_same_v<T, float>)
    return when(Kind::Float, [&] { return static_cast<T>(value.real()); });
  else if constexpr (std::is_same_v<T, bool>)
    return when(Kind::Bool, [&] { return value.boolean(); });
  else if constexpr (std::is_same_v<T, veltrano::Date>)
    return when(Kind::Date, [&] { return FlatAccess::date(value); });
  else if constexpr (std::is_same_v<T, veltrano::URL>)
    return when(Kind::URL, [&] { return T(value.text()); });
  else if constexpr (std::is_same_v<T, veltrano::NSNull>)
    return when(Kind::NSNull, [] { return T(); });
  else if constexpr (std::is_same_v<T, veltrano::Array>)
    return when(Kind::Array, [&] { return FlatAccess::make<T>(flat_); });
  else
    return when(Kind::Dictionary, [&] { return FlatAccess::make<T>(normalised(value)); });
}

template std::optional<std::string> SupportedParameterType::getIf() const;
template std::optional<std::int64_t> SupportedParameterType::getIf() const;
template std::optional<std::uint64_t> SupportedParameterType::getIf() const;
template std::optional<Int64> SupportedParameterType::getIf() const;
template std::optional<double> SupportedParameterType::getIf() const;
template std::optional<float> SupportedParameterType::getIf() const;
template std::optional<bool> SupportedParameterType::getIf() const;
template std::optional<Date> SupportedParameterType::getIf() const;
template std::optional<URL> SupportedParameterType::getIf() const;
template std::optional<NSNull> SupportedParameterType::getIf() const;
template std::optional<Array> SupportedParameterType::getIf() const;
template std::optional<Dictionary> SupportedParameterType::getIf() const;

std::optional<NSNumber> HostValue::number() const {
  const FlatView value = viewOf(*this);
  if (value.kind() != Kind::Number) return std::nullopt;
  return FlatAccess::number(value);
}

std::optional<OtherObject> HostValue::otherObject() const {
  if (viewOf(*this).kind() != Kind::OtherObject) return std::nullopt;
  return OtherObject();
}

HostMap::HostMap(std::initializer_list<detail::MapElement> entries) : flat_(flatMap(entries)) {}

HostMap::HostMap(const HostMapView& map) : flat_(flatMap(map.argument())) {
  if (flat_.kind() == Kind::Absent) *this = HostMap();
}

// Level -1: the map itself is not a property and does not count toward the nesting of its values.
Flat HostMap::flatMap(const Argument& map) {
  return written(-1, [&](FlatWriter& writer) { writer.value(map); });
}

void HostMap::set(std::string_view key, const HostValue& value) {
  FlatBuffer entry;
  entry.entry(key, value);
  std::string& bytes = flat_.bytes();
  const std::uint32_t size =
      detail::FlatWriter::length(bytes.size() - FlatView::kContainerHead + entry.bytes().size());
  bytes.append(entry.bytes());
  bytes[1] = static_cast<char>(std::max(FlatView(bytes).depth(), entry.depth() + 1));
  std::memcpy(bytes.data() + 2, &size, sizeof size);
  if (!isUntidy(bytes.size(), sizeWhenTidy_)) return;
  flat_ = normalised(FlatView(bytes), -1);
  sizeWhenTidy_ = bytes.size();
}

HostMap::const_iterator HostMap::begin() const {
  return const_iterator(beginOf(flat_));
}
HostMap::const_iterator HostMap::end() const {
  return const_iterator(endOf(flat_));
}
std::size_t HostMap::size() const {
  return count(*this);
}

}  // namespace veltrano

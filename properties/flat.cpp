#include "properties/flat.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <stdexcept>

#include "veltrano/value.h"

namespace veltrano::internal {
namespace {

template <class T>
int order(const T& left, const T& right) {
  return left < right ? -1 : right < left ? 1 : 0;
}

// NaNs sort after all numbers.
int orderOfNumbers(double left, double right) {
  if (std::isnan(left) || std::isnan(right)) return order(std::isnan(left), std::isnan(right));
  return order(left, right);
}

// The container with fewer values sorts first.
int orderOfContents(const FlatContents& left, const FlatContents& right) {
  const auto bySize =
      std::distance(left.begin(), left.end()) - std::distance(right.begin(), right.end());
  if (bySize != 0) return bySize < 0 ? -1 : 1;
  for (auto l = left.begin(), r = right.begin(); l != left.end(); ++l, ++r)
    if (const int byElement = compare(*l, *r); byElement != 0) return byElement;
  return 0;
}

}  // namespace
}  // namespace veltrano::internal

namespace veltrano::detail {

using namespace internal;

[[gnu::hot]] FlatWriter::Container FlatWriter::open(Kind kind) {
  const Container container{static_cast<std::size_t>(at_ - begin_), std::exchange(depth_, 0)};
  *take(FlatView::kContainerHead) = static_cast<char>(kind);
  ++level_;
  return container;
}

[[gnu::hot]] void FlatWriter::close(Container container) {
  char* const start = begin_ + container.start;
  if (--level_ >= kMaxNesting) {
    *start = static_cast<char>(Kind::Absent);
    at_ = start + 1;
    depth_ = container.depth;
    return;
  }
  const auto depth = static_cast<std::uint8_t>(depth_ + 1);
  const std::uint32_t size =
      length(static_cast<std::size_t>(at_ - start) - FlatView::kContainerHead);
  std::memcpy(start + 1, &depth, sizeof depth);
  std::memcpy(start + 2, &size, sizeof size);
  depth_ = std::max(depth, container.depth);
}

void FlatWriter::refuseLength() {
  throw std::length_error("a value too long");
}

[[gnu::hot]] void FlatWriter::text(Kind kind, std::string_view text) {
  putText(take(kTextHead + text.size()), kind, text);
}

[[gnu::hot]] void FlatWriter::value(const Argument& argument) {
  using Form = Argument::Form;
  switch (argument.form_) {
    case Form::scalar:
      at_ = putScalar(take(1 + sizeof argument.bits_), argument.kind_, argument.bits_);
      return;
    case Form::text:
      return text(argument.kind_, {static_cast<const char*>(argument.object_), argument.size_});
    case Form::flat:
      return flat(static_cast<const char*>(argument.object_));
    case Form::number:
      return number(*static_cast<const NSNumber*>(argument.object_));
    case Form::list: {
      const auto* element = static_cast<const detail::ArrayElement*>(argument.object_);
      const Container array = open(Kind::Array);
      for (const auto* end = element + argument.size_; element != end; ++element)
        value(element->value);
      return close(array);
    }
    case Form::map: {
      const auto* next = static_cast<const detail::MapElement*>(argument.object_);
      const Container dictionary = open(Kind::Dictionary);
      for (const auto* end = next + argument.size_; next != end; ++next)
        entry(next->key, next->value);
      return close(dictionary);
    }
    case Form::own:
      return argument.append_(*this, argument.object_);
  }
}

void FlatWriter::number(const NSNumber& number) {
  const std::int32_t code = number.storageTypeCode();
  const std::int64_t asInteger = number.integerValue();
  const double asDouble = number.doubleValue();
  char* const to = take(scalarSize(Kind::Number));
  *to = static_cast<char>(Kind::Number);
  std::memcpy(to + 1, &code, sizeof code);
  std::memcpy(to + 5, &asInteger, sizeof asInteger);
  std::memcpy(to + 13, &asDouble, sizeof asDouble);
}

[[gnu::hot]] void FlatWriter::flat(const char* value) {
  const FlatView given(value);
  const int depth = given.depth();
  if (given.isContainer() && level_ + depth > kMaxNesting) {
    const Container container = open(given.kind());
    for (const FlatView inner : given.contents()) flat(inner.bytes().data());
    return close(container);
  }
  const std::string_view bytes = given.bytes();
  std::memcpy(take(bytes.size()), bytes.data(), bytes.size());
  depth_ = std::max(depth_, static_cast<std::uint8_t>(depth));
}

Flat::Flat(const Argument& argument) {
  FlatBuffer buffer;
  buffer.value(argument);
  bytes_ = buffer.bytes();
}

// Short enough to need no memory.
std::string Flat::emptied(Kind kind) noexcept {
  const bool isContainer = kind == Kind::Array || kind == Kind::Dictionary;
  const bool isText = kind == Kind::String || kind == Kind::URL;
  std::string bytes(isContainer ? FlatView::kContainerHead : isText ? kTextHead : 1, '\0');
  bytes[0] = static_cast<char>(isContainer || isText ? kind : Kind::Absent);
  if (isContainer) bytes[1] = 1;  // its depth
  return bytes;
}

void Argument::flat(const HostValue& value) noexcept {
  flat(value.value_);
}

void Argument::flat(const SupportedParameterType& value) noexcept {
  form_ = Form::flat;
  object_ = value.flat_.bytes().data();
}

void Argument::flat(const Array& value) noexcept {
  form_ = Form::flat;
  object_ = value.flat_.bytes().data();
}

void Argument::flat(const Dictionary& value) noexcept {
  form_ = Form::flat;
  object_ = value.flat_.bytes().data();
}

void Argument::flat(const HostMap& value) noexcept {
  form_ = Form::flat;
  object_ = value.flat_.bytes().data();
}

}  // namespace veltrano::detail

namespace veltrano::internal {

void FlatBuffer::grow(std::size_t size) {
  const std::size_t used = bytes().size();
  const std::size_t capacity = std::max(2 * static_cast<std::size_t>(end_ - begin_), used + size);
  auto grown = std::make_unique<char[]>(capacity);
  std::memcpy(grown.get(), begin_, used);
  grown_ = std::move(grown);
  begin_ = grown_.get();
  at_ = begin_ + used;
  end_ = begin_ + capacity;
}

int compare(FlatView left, FlatView right) {
  if (const int byKind = order(left.kind(), right.kind()); byKind != 0) return byKind;
  switch (left.kind()) {
    case Kind::String:
    case Kind::URL:
      return order(left.text(), right.text());
    case Kind::UInt:
      return order(static_cast<std::uint64_t>(left.integer()),
                   static_cast<std::uint64_t>(right.integer()));
    case Kind::Int:
    case Kind::Int64:
    case Kind::Date:
      return order(left.integer(), right.integer());
    case Kind::Double:
    case Kind::Float:
      return orderOfNumbers(left.real(), right.real());
    case Kind::Bool:
      return order(left.boolean(), right.boolean());
    case Kind::Number: {
      const int byCode = order(left.numberCode(), right.numberCode());
      if (byCode != 0) return byCode;
      const int byInteger = order(left.numberAsInteger(), right.numberAsInteger());
      if (byInteger != 0) return byInteger;
      return orderOfNumbers(left.numberAsDouble(), right.numberAsDouble());
    }
    case Kind::Array:
    case Kind::Dictionary:
      return orderOfContents(left.contents(), right.contents());
    case Kind::NSNull:
    case Kind::OtherObject:
    case Kind::Absent:
      break;
  }
  return 0;
}

}  // namespace veltrano::internal

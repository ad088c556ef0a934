#include "properties/flat.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <stdexcept>

namespace veltrano {
namespace {

// What stands before the contents of a container, and before text.
constexpr std::size_t kContainerHead = 6;
constexpr std::size_t kTextHead = 5;

std::uint32_t length(std::size_t size) {
  if (size > std::numeric_limits<std::uint32_t>::max()) throw std::length_error("a value too long");
  return static_cast<std::uint32_t>(size);
}

template <class T>
int order(const T& left, const T& right) {
  return left < right ? -1 : right < left ? 1 : 0;
}

// NaNs stand after all numbers.
int orderOfNumbers(double left, double right) {
  if (std::isnan(left) || std::isnan(right)) return order(std::isnan(left), std::isnan(right));
  return order(left, right);
}

// The smaller one comes first, whatever it holds.
int orderOfContents(const FlatContents& left, const FlatContents& right) {
  const auto bySize =
      std::distance(left.begin(), left.end()) - std::distance(right.begin(), right.end());
  if (bySize != 0) return bySize < 0 ? -1 : 1;
  for (auto l = left.begin(), r = right.begin(); l != left.end(); ++l, ++r)
    if (const int byElement = compare(*l, *r); byElement != 0) return byElement;
  return 0;
}

}  // namespace

std::size_t FlatView::size() const {
  switch (kind()) {
    case Kind::String:
    case Kind::URL:
      return kTextHead + read<std::uint32_t>(1);
    case Kind::Array:
    case Kind::Dictionary:
      return kContainerHead + read<std::uint32_t>(2);
    case Kind::Int:
    case Kind::UInt:
    case Kind::Int64:
    case Kind::Double:
    case Kind::Date:
      return 9;
    case Kind::Float:
      return 5;
    case Kind::Bool:
      return 2;
    case Kind::Number:
      return 21;
    case Kind::NSNull:
    case Kind::OtherObject:
    case Kind::Absent:
      break;
  }
  return 1;
}

FlatContents FlatView::contents() const {
  return FlatContents({at_ + kContainerHead, read<std::uint32_t>(2)});
}

FlatWriter::Container FlatWriter::open(Kind kind) {
  const Container container{static_cast<std::size_t>(at_ - begin_), std::exchange(depth_, 0)};
  *take(kContainerHead) = static_cast<char>(kind);
  ++level_;
  return container;
}

void FlatWriter::close(Container container) {
  char* const start = begin_ + container.start;
  if (--level_ >= kDeepestNesting) {
    *start = static_cast<char>(Kind::Absent);
    at_ = start + 1;
    depth_ = container.depth;
    return;
  }
  const auto depth = static_cast<std::uint8_t>(depth_ + 1);
  const std::uint32_t size = length(static_cast<std::size_t>(at_ - start) - kContainerHead);
  std::memcpy(start + 1, &depth, sizeof depth);
  std::memcpy(start + 2, &size, sizeof size);
  depth_ = std::max(depth, container.depth);
}

void FlatWriter::scalar(Kind kind, const void* bytes, std::size_t size) {
  char* const to = take(1 + size);
  *to = static_cast<char>(kind);
  std::memcpy(to + 1, bytes, size);
}

void FlatWriter::text(Kind kind, std::string_view text) {
  const std::uint32_t size = length(text.size());
  char* const to = take(kTextHead + text.size());
  *to = static_cast<char>(kind);
  std::memcpy(to + 1, &size, sizeof size);
  std::memcpy(to + kTextHead, text.data(), text.size());
}

void FlatWriter::value(const Argument& argument) {
  using Form = Argument::Form;
  switch (argument.form_) {
    case Form::flat:
      return flat(static_cast<const char*>(argument.object_));
    case Form::own:
      return argument.append_(*this, argument.object_);
    case Form::list: {
      const auto* elements = static_cast<const detail::ArrayElement*>(argument.object_);
      const Container array = open(Kind::Array);
      for (std::size_t i = 0; i < argument.size_; ++i) value(elements[i].value);
      return close(array);
    }
    case Form::map: {
      const auto* entries = static_cast<const detail::MapElement*>(argument.object_);
      const Container dictionary = open(Kind::Dictionary);
      for (std::size_t i = 0; i < argument.size_; ++i) {
        text(Kind::String, entries[i].key);
        value(entries[i].value);
      }
      return close(dictionary);
    }
    case Form::value:
      break;
  }
  switch (argument.kind_) {
    case Kind::String:
    case Kind::URL:
      return text(argument.kind_, {static_cast<const char*>(argument.object_), argument.size_});
    case Kind::Int:
    case Kind::UInt:
    case Kind::Int64:
    case Kind::Date:
    case Kind::Double:
      return scalar(argument.kind_, &argument.bits_, 8);
    case Kind::Float:
      return scalar(argument.kind_, &argument.float_, 4);
    case Kind::Bool: {
      const bool flag = argument.bits_ != 0;
      return scalar(argument.kind_, &flag, 1);
    }
    case Kind::Number: {
      const auto& number = *static_cast<const NSNumber*>(argument.object_);
      const std::int32_t code = number.storageTypeCode();
      const std::int64_t asInteger = number.integerValue();
      const double asDouble = number.doubleValue();
      char bytes[20];
      std::memcpy(bytes, &code, 4);
      std::memcpy(bytes + 4, &asInteger, 8);
      std::memcpy(bytes + 12, &asDouble, 8);
      return scalar(argument.kind_, bytes, sizeof bytes);
    }
    default:
      return scalar(argument.kind_, nullptr, 0);
  }
}

void FlatWriter::flat(const char* at) {
  const FlatView given(at);
  const int depth = given.depth();
  if (given.isContainer() && level_ + depth > kDeepestNesting) {
    const Container container = open(given.kind());
    for (const FlatView inner : given.contents()) flat(inner.bytes().data());
    return close(container);
  }
  const std::string_view bytes = given.bytes();
  std::memcpy(take(bytes.size()), bytes.data(), bytes.size());
  depth_ = std::max(depth_, static_cast<std::uint8_t>(depth));
}

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

void appendToContainer(std::string& container, const FlatBuffer& contents) {
  const std::uint32_t size = length(container.size() - kContainerHead + contents.bytes().size());
  container.append(contents.bytes());
  const auto depth = static_cast<char>(std::max(FlatView(container).depth(), contents.depth() + 1));
  container[1] = depth;
  std::memcpy(container.data() + 2, &size, sizeof size);
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

}  // namespace veltrano

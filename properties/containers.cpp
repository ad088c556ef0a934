#include "properties/containers.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <new>

#include "encoding/utf8.h"

namespace veltrano {
namespace {

// Releases `contents`, and what hangs below it one after the other instead of one inside the
// other: a destructor that runs meanwhile on this thread only adds to the list.
void release(std::shared_ptr<const void> contents) {
  thread_local std::vector<std::shared_ptr<const void>>* waiting = nullptr;
  if (!contents) return;
  if (waiting != nullptr) {
    try {
      waiting->push_back(contents);
    } catch (const std::bad_alloc&) {
      // Then they go at once, one inside the other.
    }
    return;
  }
  std::vector<std::shared_ptr<const void>> list;
  waiting = &list;
  contents.reset();
  while (!list.empty()) {
    const auto last = std::move(list.back());
    list.pop_back();
  }
  waiting = nullptr;
}

template <class T>
int order(const T& left, const T& right) {
  return left < right ? -1 : right < left ? 1 : 0;
}

// NaNs of either sign are one value here and stand after all numbers.
int orderOfNumbers(double left, double right) {
  if (std::isnan(left) || std::isnan(right)) return order(std::isnan(left), std::isnan(right));
  return order(left, right);
}

int orderOfScalars(const SupportedParameterType& left, const SupportedParameterType& right) {
  using Member = SupportedParameterType::Member;
  switch (left.member()) {
    case Member::String:
      return order(*left.getIf<std::string>(), *right.getIf<std::string>());
    case Member::Int:
      return order(*left.getIf<std::int64_t>(), *right.getIf<std::int64_t>());
    case Member::UInt:
      return order(*left.getIf<std::uint64_t>(), *right.getIf<std::uint64_t>());
    case Member::Int64:
      return order(left.getIf<Int64>()->value, right.getIf<Int64>()->value);
    case Member::Double:
      return orderOfNumbers(*left.getIf<double>(), *right.getIf<double>());
    case Member::Float:
      return orderOfNumbers(*left.getIf<float>(), *right.getIf<float>());
    case Member::Bool:
      return order(*left.getIf<bool>(), *right.getIf<bool>());
    case Member::Date:
      return order(left.getIf<Date>()->sinceEpoch(), right.getIf<Date>()->sinceEpoch());
    case Member::URL:
      return order(left.getIf<URL>()->text(), right.getIf<URL>()->text());
    case Member::NSNull:
    case Member::Array:
    case Member::Dictionary:
      break;
  }
  return 0;
}

int kindOf(const HostValue& value) {
  constexpr int kFirstAfterMembers = 100;
  if (const auto* member = value.member()) return static_cast<int>(member->member());
  return kFirstAfterMembers + (value.number() ? 0 : value.otherObject() ? 1 : 2);
}

// The order of two values, their contents aside.
int orderOfHeads(const HostValue& left, const HostValue& right) {
  if (const int byKind = order(kindOf(left), kindOf(right)); byKind != 0) return byKind;
  if (const auto* member = left.member()) return orderOfScalars(*member, *right.member());
  if (const auto* number = left.number()) {
    const int byCode = order(number->storageTypeCode(), right.number()->storageTypeCode());
    if (byCode != 0) return byCode;
    const int byInteger = order(number->integerValue(), right.number()->integerValue());
    if (byInteger != 0) return byInteger;
    return orderOfNumbers(number->doubleValue(), right.number()->doubleValue());
  }
  return 0;
}

using Pairs = std::vector<std::pair<const HostValue*, const HostValue*>>;

// Appends what two containers of one kind hold, pair by pair, last pair first. Answers the order
// that is left to decide when all pairs are equal.
int appendContents(const HostValue& left, const HostValue& right, Pairs& pairs) {
  const std::size_t start = pairs.size();
  int bySize = 0;
  if (const auto* array = left.member()->getIf<Array>()) {
    const auto* other = right.member()->getIf<Array>();
    bySize = order(array->size(), other->size());
    for (std::size_t i = 0; i < std::min(array->size(), other->size()); ++i)
      pairs.emplace_back(array->begin() + i, other->begin() + i);
  } else if (const auto* dictionary = left.member()->getIf<Dictionary>()) {
    const auto* other = right.member()->getIf<Dictionary>();
    bySize = order(dictionary->size(), other->size());
    for (std::size_t i = 0; i < std::min(dictionary->size(), other->size()); ++i) {
      pairs.emplace_back(&dictionary->begin()[i].key, &other->begin()[i].key);
      pairs.emplace_back(&dictionary->begin()[i].value, &other->begin()[i].value);
    }
  }
  std::reverse(pairs.begin() + static_cast<std::ptrdiff_t>(start), pairs.end());
  return bySize;
}

}  // namespace

int compare(const HostValue& left, const HostValue& right) {
  Pairs pairs{{&left, &right}};
  while (!pairs.empty()) {
    const auto [l, r] = pairs.back();
    pairs.pop_back();
    if (const int byHead = orderOfHeads(*l, *r); byHead != 0) return byHead;
    if (l->member() == nullptr) continue;
    // Containers of unequal size are unequal whatever they hold.
    if (const int bySize = appendContents(*l, *r, pairs); bySize != 0) return bySize;
  }
  return 0;
}

std::shared_ptr<const void> ValueAccess::takeContents(HostValue& value) {
  SupportedParameterType* member = ValueAccess::member(value);
  if (member == nullptr) return nullptr;
  auto* container = std::get_if<SupportedParameterType::Container>(&member->value_);
  if (container == nullptr) return nullptr;
  if (auto* array = std::get_if<Array>(container)) return std::move(array->storage_);
  return std::move(std::get_if<Dictionary>(container)->storage_);
}

ArrayStorage::~ArrayStorage() {
  for (HostValue& element : elements) release(ValueAccess::takeContents(element));
}

DictionaryStorage::DictionaryStorage(std::vector<DictionaryEntry> contents)
    : entries(std::move(contents)) {
  // Stable, so that of equal keys the last one given stands last and is the one kept.
  std::stable_sort(entries.begin(), entries.end(),
                   [](const DictionaryEntry& left, const DictionaryEntry& right) {
                     return compare(left.key, right.key) < 0;
                   });
  const auto firstKept = std::unique(entries.rbegin(), entries.rend(),
                                     [](const DictionaryEntry& later, const DictionaryEntry& it) {
                                       return compare(later.key, it.key) == 0;
                                     });
  entries.erase(entries.begin(), firstKept.base());
  for (const DictionaryEntry& entry : entries) {
    const auto* key = entry.key.member();
    if (key == nullptr || key->getIf<std::string>() == nullptr) hasOnlyStringKeys = false;
  }
}

DictionaryStorage::~DictionaryStorage() {
  for (DictionaryEntry& entry : entries) {
    release(ValueAccess::takeContents(entry.key));
    release(ValueAccess::takeContents(entry.value));
  }
}

Array::Array(std::initializer_list<detail::ArrayElement> elements) {
  std::vector<HostValue> contents;
  contents.reserve(elements.size());
  for (const auto& element : elements) contents.push_back(std::move(element.value));
  *this = Array(std::move(contents));
}

Array::Array(std::vector<HostValue> elements) {
  if (!elements.empty()) storage_ = std::make_shared<ArrayStorage>(std::move(elements));
}

const HostValue* Array::begin() const {
  return storage_ ? storage_->elements.data() : nullptr;
}
const HostValue* Array::end() const {
  return begin() + size();
}
std::size_t Array::size() const {
  return storage_ ? storage_->elements.size() : 0;
}

bool Array::isValidNestedType() const {
  return std::all_of(begin(), end(), [](const HostValue& e) { return e.member() != nullptr; });
}

Dictionary::Dictionary(std::initializer_list<detail::MapElement> entries)
    : Dictionary(HostMap(entries)) {}

Dictionary::Dictionary(HostMap entries) {
  std::vector<DictionaryEntry> contents;
  contents.reserve(entries.size());
  for (HostMapEntry& entry : ValueAccess::entries(entries))
    contents.push_back({std::move(entry.key), std::move(entry.value)});
  *this = Dictionary(std::move(contents));
}

Dictionary::Dictionary(std::vector<DictionaryEntry> entries) {
  if (!entries.empty()) storage_ = std::make_shared<DictionaryStorage>(std::move(entries));
}

const DictionaryEntry* Dictionary::begin() const {
  return storage_ ? storage_->entries.data() : nullptr;
}
const DictionaryEntry* Dictionary::end() const {
  return begin() + size();
}
std::size_t Dictionary::size() const {
  return storage_ ? storage_->entries.size() : 0;
}

bool Dictionary::hasOnlyStringKeys() const {
  return !storage_ || storage_->hasOnlyStringKeys;
}

bool Dictionary::isValidNestedType() const {
  return hasOnlyStringKeys() && std::all_of(begin(), end(), [](const DictionaryEntry& e) {
           return e.value.member() != nullptr;
         });
}

}  // namespace veltrano

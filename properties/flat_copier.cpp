#include "properties/flat_copier.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <string>

#include "encoding/utf8.h"
#include "properties/json_value_writer.h"

namespace veltrano::internal {
namespace {

template <class Writer>
void writeNumber(Writer& writer, FlatView number) {
  const Kind kind = kindOfBoxed(number.numberCode());
  if (kind == Kind::Int) return writer.value(number.numberAsInteger());
  if (kind == Kind::Bool) return writer.value(number.numberAsDouble() != 0);
  writer.value(number.numberAsDouble());
}

}  // namespace

void FlatCopier::sortEntries(FlatView map, std::vector<PropertyView::Entry>& entries) {
  repaired_.clear();
  entries_.clear();  // not empty if the last copy ran out of memory
  entries.clear();
  if (map.kind() == Kind::Dictionary) appendSorted(entries, map, true);
}

template <class Writer>
void FlatCopier::copy(Writer& writer, FlatView value, bool converts) {
  switch (value.kind()) {
    case Kind::String:
    case Kind::URL:
      return withWellFormed(value.text(),
                            [&](std::string_view text) { writer.text(value.kind(), text); });
    case Kind::Array: {
      const auto array = writer.open(Kind::Array);
      for (const FlatView element : value.contents())
        if (!converts || isSendable(element)) copy(writer, element, converts);
      return writer.close(array);
    }
    case Kind::Dictionary: {
      const auto dictionary = writer.open(Kind::Dictionary);
      if (hasOnlyStringKeys(value))
        copyEntries(writer, value, converts);
      else
        copyEntriesWithOtherKeys(writer, value);
      return writer.close(dictionary);
    }
    case Kind::Number:
      if (converts) return writeNumber(writer, value);
      break;
    case Kind::Int:
    case Kind::UInt:
    case Kind::Int64:
    case Kind::Double:
    case Kind::Float:
    case Kind::Bool:
    case Kind::Date:
    case Kind::NSNull:
    case Kind::OtherObject:
    case Kind::Absent:
      break;
  }
  writer.flat(value.data());
}

template <class Writer>
void FlatCopier::copyEntries(Writer& writer, FlatView map, bool converts) {
  const std::size_t first = entries_.size();
  appendSorted(entries_, map, converts);
  const std::size_t end = entries_.size();
  for (std::size_t i = first; i < end; ++i) {
    writer.text(Kind::String, entries_[i].key);
    copy(writer, entries_[i].value, converts);
  }
  entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(first), entries_.end());
}

void FlatCopier::appendSorted(std::vector<PropertyView::Entry>& entries, FlatView map,
                              bool converts) {
  const auto first = static_cast<std::ptrdiff_t>(entries.size());
  const FlatContents contents = map.contents();
  for (auto it = contents.begin(); it != contents.end(); ++it) {
    std::string_view key = (*it).text();
    if (!isASCII(key)) key = repaired_.emplace_front(wellFormedUTF8(key));
    entries.push_back({key, *++it});
  }
  // Equal keys stay in the order in which they were given.
  std::sort(entries.begin() + first, entries.end(), [](const auto& l, const auto& r) {
    const int byKey = compareTexts(l.key, r.key);
    return byKey != 0 ? byKey < 0 : l.value.data() < r.value.data();
  });
  // Among equal keys the last one wins, even if its value is then left out.
  auto kept = entries.begin() + first;
  for (auto it = kept; it != entries.end(); ++it) {
    const bool isReplaced = it + 1 != entries.end() && it[1].key == it->key;
    if (!isReplaced && (!converts || isSendable(it->value)) && !isWithheld(it->key)) *kept++ = *it;
  }
  entries.erase(kept, entries.end());
}

// Slow, which does not matter: no event can hold such a dictionary.
void FlatCopier::copyEntriesWithOtherKeys(FlatWriter& writer, FlatView dictionary) {
  const auto isBefore = [](const std::string& left, const std::string& right) {
    return compare(FlatView(left), FlatView(right)) < 0;
  };
  std::map<std::string, FlatView, decltype(isBefore)> entries(isBefore);
  const FlatContents contents = dictionary.contents();
  for (auto it = contents.begin(); it != contents.end(); ++it) {
    FlatBuffer key;
    normalise(key, *it);
    entries.insert_or_assign(std::string(key.bytes()), *++it);
  }
  for (const auto& [key, value] : entries) {
    writer.flat(key.data());
    normalise(writer, value);
  }
}

void FlatCopier::copyEntriesWithOtherKeys(JSONValueWriter& writer, FlatView) {
  writer.fail();
}

bool hasOnlyStringKeys(FlatView dictionary) {
  const FlatContents contents = dictionary.contents();
  for (auto it = contents.begin(); it != contents.end(); ++it, ++it)
    if ((*it).kind() != Kind::String) return false;
  return true;
}

template void FlatCopier::copy(FlatWriter&, FlatView, bool);
template void FlatCopier::copy(JSONValueWriter&, FlatView, bool);

}  // namespace veltrano::internal

#include "properties/flat_copier.h"

#include <algorithm>
#include <cstddef>
#include <forward_list>

#include "encoding/utf8.h"

namespace veltrano {
namespace {

// Codes of the platform's number types: which of them are integers.
Kind memberOf(int numberCode) {
  switch (numberCode) {
    case 1:   // SInt8
    case 2:   // SInt16
    case 3:   // SInt32
    case 4:   // SInt64
    case 9:   // int
    case 10:  // long
    case 11:  // long long
    case 15:  // NSInteger
      return Kind::Int;
    case 7:  // char, which is how a boolean is boxed
      return Kind::Bool;
    default:
      return Kind::Double;
  }
}

void writeNumber(FlatWriter& writer, FlatView number) {
  const Kind member = memberOf(number.numberCode());
  if (member == Kind::Int) {
    const std::int64_t integer = number.numberAsInteger();
    writer.scalar(member, &integer, sizeof integer);
  } else if (member == Kind::Bool) {
    const bool flag = number.numberAsDouble() != 0;
    writer.scalar(member, &flag, sizeof flag);
  } else {
    const double real = number.numberAsDouble();
    writer.scalar(member, &real, sizeof real);
  }
}

// Whether events can hold the value, or what conversion makes of it.
bool isKept(FlatView value) {
  if (value.kind() == Kind::Dictionary) return !value.contents().bytes().empty();
  return value.kind() != Kind::OtherObject && value.kind() != Kind::Absent;
}

}  // namespace

bool FlatCopier::convert(FlatWriter& writer, FlatView value) {
  if (!isKept(value)) return false;
  copy(writer, value, true);
  return true;
}

void FlatCopier::copy(FlatWriter& writer, FlatView value, bool converts) {
  switch (value.kind()) {
    case Kind::String:
    case Kind::URL:
      return copyText(writer, value.kind(), value.text());
    case Kind::Array: {
      const auto array = writer.open(Kind::Array);
      for (const FlatView element : value.contents())
        if (!converts || isKept(element)) copy(writer, element, converts);
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
    default:
      break;
  }
  writer.flat(value.data());
}

void FlatCopier::copyText(FlatWriter& writer, Kind kind, std::string_view text) {
  if (isASCII(text))
    writer.text(kind, text);
  else
    writer.text(kind, wellFormedUTF8(std::string(text)));
}

void FlatCopier::copyEntries(FlatWriter& writer, FlatView map, bool converts) {
  const std::size_t first = entries_.size();
  std::forward_list<std::string> repaired;
  const FlatContents contents = map.contents();
  for (auto it = contents.begin(); it != contents.end(); ++it) {
    std::string_view key = (*it).text();
    if (!isASCII(key)) key = repaired.emplace_front(wellFormedUTF8(std::string(key)));
    entries_.push_back({key, *++it});
  }
  // Of equal keys the last one given stands last. It is the one that counts, also when its value is
  // then left out.
  std::sort(entries_.begin() + static_cast<std::ptrdiff_t>(first), entries_.end(),
            [](const Entry& left, const Entry& right) {
              const int byKey = left.key.compare(right.key);
              return byKey != 0 ? byKey < 0 : left.value.data() < right.value.data();
            });
  const std::size_t end = entries_.size();
  for (std::size_t i = first; i < end; ++i) {
    const Entry entry = entries_[i];
    if (i + 1 < end && entries_[i + 1].key == entry.key) continue;
    if (converts && !isKept(entry.value)) continue;
    writer.text(Kind::String, entry.key);
    copy(writer, entry.value, converts);
  }
  entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(first), entries_.end());
}

// No event holds such a dictionary, so it is not worth speed.
void FlatCopier::copyEntriesWithOtherKeys(FlatWriter& writer, FlatView dictionary) {
  std::vector<std::pair<std::string, FlatView>> entries;
  const FlatContents contents = dictionary.contents();
  for (auto it = contents.begin(); it != contents.end(); ++it) {
    FlatBuffer key;
    normalise(key, *it);
    entries.emplace_back(key.bytes(), *++it);
  }
  std::stable_sort(entries.begin(), entries.end(), [](const auto& left, const auto& right) {
    return compare(FlatView(left.first), FlatView(right.first)) < 0;
  });
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const auto& [key, value] = entries[i];
    if (i + 1 < entries.size() && compare(FlatView(key), FlatView(entries[i + 1].first)) == 0)
      continue;
    writer.flat(key.data());
    normalise(writer, value);
  }
}

bool hasOnlyStringKeys(FlatView dictionary) {
  const FlatContents contents = dictionary.contents();
  for (auto it = contents.begin(); it != contents.end(); ++it, ++it)
    if ((*it).kind() != Kind::String) return false;
  return true;
}

}  // namespace veltrano

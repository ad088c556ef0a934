#pragma once

#include <algorithm>
#include <cstddef>
#include <forward_list>
#include <string>
#include <string_view>
#include <vector>

#include "properties/property_map.h"

namespace veltrano::internal {

class JSONValueWriter;

/// Copies values into the form in which they are compared, logged and sent: text is well-formed,
/// dictionaries are sorted by key, and of equal keys only the last is kept. Writes to a
/// `FlatWriter` or a `JSONValueWriter`. Reuses its memory from copy to copy. Not thread-safe.
class FlatCopier {
 public:
  /// Leaves out the entries of dictionaries with these keys, which are sorted, at every level.
  explicit FlatCopier(const std::vector<std::string>* withheld = nullptr) : withheld_(withheld) {}

  /// Normalises `value` without changing its meaning.
  void normalise(FlatWriter& writer, FlatView value) { copy(writer, value, false); }
  void normalise(JSONValueWriter& writer, FlatView value) { copy(writer, value, false); }

  /// Normalises and converts `value`: boxed numbers become an Int, a Bool or a Double, and whatever
  /// events cannot hold is left out at every level. False when nothing remains.
  bool convert(FlatWriter& writer, FlatView value) {
    return isSendable(value) && (copy(writer, value, true), true);
  }
  bool convert(JSONValueWriter& writer, FlatView value) {
    return isSendable(value) && (copy(writer, value, true), true);
  }

  /// Sets `entries` to the sorted entries of `map` that conversion keeps, or to none when the map
  /// is absent. They refer to the map and to this copier, and are valid until the next call.
  void sortEntries(FlatView map, std::vector<PropertyView::Entry>& entries);

  bool isWithheld(std::string_view key) const {
    return withheld_ != nullptr && !withheld_->empty() &&
           std::binary_search(withheld_->begin(), withheld_->end(), key);
  }

 private:
  template <class Writer>
  void copy(Writer& writer, FlatView value, bool converts);
  template <class Writer>
  void copyEntries(Writer& writer, FlatView map, bool converts);
  void copyEntriesWithOtherKeys(FlatWriter& writer, FlatView dictionary);
  static void copyEntriesWithOtherKeys(JSONValueWriter& writer, FlatView dictionary);
  void appendSorted(std::vector<PropertyView::Entry>& entries, FlatView map, bool converts);

  const std::vector<std::string>* const withheld_;  // null or empty: none

  std::vector<PropertyView::Entry> entries_;  // a stack: those of the dictionaries being copied
  std::forward_list<std::string> repaired_;   // copies of non-ASCII keys, well-formed
};

/// Whether a Dictionary may hold too many entries that a later equal key replaces: it has roughly
/// doubled since it was normalised. Its size was `normalised` then, 0 at first.
inline bool isUntidy(std::size_t size, std::size_t normalised) {
  constexpr std::size_t kFewBytes = 1024;
  return size >= 2 * normalised + kFewBytes;
}

/// Whether every key of the Dictionary is a String.
bool hasOnlyStringKeys(FlatView dictionary);

}  // namespace veltrano::internal

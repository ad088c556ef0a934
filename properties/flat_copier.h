#pragma once

#include <forward_list>
#include <string>
#include <string_view>
#include <vector>

#include "properties/flat.h"

namespace veltrano::internal {

class JSONValueWriter;

/// One entry of a map whose keys are text.
struct FlatEntry {
  std::string_view key;  // well-formed
  FlatView value;
};

/// Copies values into the form in which they are compared, shown and sent: text is well-formed, and
/// dictionaries are sorted by key without the entries that a later equal key replaces. Writes to a
/// `FlatWriter` or a `JSONValueWriter`. Keeps its memory from one copy to the next. For one thread
/// at a time.
class FlatCopier {
 public:
  /// `value` normalised. What it stands for stays as it is.
  void normalise(FlatWriter& writer, FlatView value) { copy(writer, value, false); }
  void normalise(JSONValueWriter& writer, FlatView value) { copy(writer, value, false); }

  /// `value` normalised and converted: number objects are an Int, a Bool or a Double; what events
  /// cannot hold is left out, wherever it stands. False when that is all of it.
  bool convert(FlatWriter& writer, FlatView value) {
    return survives(value) && (copy(writer, value, true), true);
  }
  bool convert(JSONValueWriter& writer, FlatView value) {
    return survives(value) && (copy(writer, value, true), true);
  }

  /// Makes `entries` those of `map` that conversion keeps, sorted; none when it is absent. They
  /// refer to the map and to the copier, until the next call of this.
  void sortEntries(FlatView map, std::vector<FlatEntry>& entries);

 private:
  static bool survives(FlatView value);

  template <class Writer>
  void copy(Writer& writer, FlatView value, bool converts);
  template <class Writer>
  void copyEntries(Writer& writer, FlatView map, bool converts);
  void copyEntriesWithOtherKeys(FlatWriter& writer, FlatView dictionary);
  static void copyEntriesWithOtherKeys(JSONValueWriter& writer, FlatView dictionary);
  void appendSorted(std::vector<FlatEntry>& entries, FlatView map, bool converts);

  std::vector<FlatEntry> entries_;           // of the dictionaries being copied, the innermost last
  std::forward_list<std::string> repaired_;  // keys
};

/// Whether every key of the Dictionary is a String.
bool hasOnlyStringKeys(FlatView dictionary);

}  // namespace veltrano::internal

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "properties/flat.h"

namespace veltrano {

/// Copies values into the form in which they are compared, shown and sent: text is well-formed, and
/// dictionaries are sorted by key without the entries that a later equal key replaces. Keeps its
/// memory from one copy to the next. For one thread at a time.
class FlatCopier {
 public:
  /// `value` normalised. What it stands for stays as it is.
  void normalise(FlatWriter& writer, FlatView value) { copy(writer, value, false); }

  /// `value` normalised and converted: number objects are an Int, a Bool or a Double; what events
  /// cannot hold is left out, wherever it stands. False when that is all of it.
  bool convert(FlatWriter& writer, FlatView value);

  /// The same of each entry of `map`, whose keys are text. The result may be empty.
  void convertEntries(FlatWriter& writer, FlatView map) { copyEntries(writer, map, true); }

 private:
  struct Entry {
    std::string_view key;
    FlatView value;
  };

  void copy(FlatWriter& writer, FlatView value, bool converts);
  void copyText(FlatWriter& writer, Kind kind, std::string_view text);
  void copyEntries(FlatWriter& writer, FlatView map, bool converts);
  void copyEntriesWithOtherKeys(FlatWriter& writer, FlatView dictionary);

  std::vector<Entry> entries_;  // of the dictionaries being copied, the innermost last
};

/// Whether every key of the Dictionary is a String.
bool hasOnlyStringKeys(FlatView dictionary);

}  // namespace veltrano

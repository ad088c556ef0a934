#pragma once

#include "encoding/json_writer.h"
#include "properties/flat.h"

namespace veltrano::internal {

/// Takes values as `FlatWriter` does and writes them as JSON: dates as ISO 8601 text, URLs as their
/// text, numbers that are not finite as null.
class JSONValueWriter {
 public:
  explicit JSONValueWriter(JSONWriter& json) : json_(json) {}

  /// A Dictionary's entries are keys and values by turns.
  Kind open(Kind container);
  void close(Kind container);
  void text(Kind, std::string_view text) { json_.string(text); }
  void value(std::int64_t number) { json_.integer(number); }
  void value(double number) { json_.number(number); }
  void value(bool flag) { json_.boolean(flag); }
  /// A scalar.
  void flat(const char* value);

  /// For a key that is no text.
  void fail() { isGood_ = false; }

  /// False once JSON could not hold something, such as a key that is no text. What has been written
  /// is then of no use.
  bool isGood() const { return isGood_; }

 private:
  JSONWriter& json_;
  bool isGood_ = true;
};

}  // namespace veltrano::internal

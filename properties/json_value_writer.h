#pragma once

#include "encoding/json_writer.h"
#include "properties/flat.h"

namespace veltrano::internal {

/// Has the interface of `FlatWriter` but writes JSON: dates as ISO 8601 text, URLs as their text,
/// non-finite numbers as null.
class JSONValueWriter {
 public:
  explicit JSONValueWriter(JSONWriter& json) : json_(json) {}

  /// A Dictionary's keys and values alternate.
  Kind open(Kind container);
  void close(Kind container);
  void text(Kind, std::string_view text) { json_.string(text); }
  void value(std::int64_t number) { json_.integer(number); }
  void value(double number) { json_.number(number); }
  void value(bool flag) { json_.boolean(flag); }
  /// A scalar.
  void flat(const char* value);

  /// Reports a key that is not text.
  void fail() { isGood_ = false; }

  /// False once a value cannot be represented in JSON; discard what has been written.
  bool isGood() const { return isGood_; }

 private:
  JSONWriter& json_;
  bool isGood_ = true;
};

}  // namespace veltrano::internal

#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

namespace veltrano::internal {

/// Writes compact JSON text, piece by piece, into a buffer of its own that is reused.
/// The caller keeps to JSON's grammar; text is well-formed UTF-8. Not safe for concurrent use.
class JSONWriter {
 public:
  JSONWriter();
  ~JSONWriter();

  /// Begins a new text.
  void clear();

  void startObject();
  void endObject();
  void startArray();
  void endArray();
  void key(std::string_view text);
  void string(std::string_view text);
  void integer(std::int64_t number);
  void unsignedInteger(std::uint64_t number);
  /// Written so that it reads back to the same double; null when it is not finite.
  void number(double number);
  void boolean(bool flag);
  void null();

  /// Members of an object that were written before, such as `"a":1,"b":[]`; at least one.
  void members(std::string_view text);

  /// What has been written since `clear`; valid until the next call.
  std::string_view text() const;

 private:
  struct Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace veltrano::internal

#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

namespace veltrano::internal {

/// Writes compact JSON piece by piece into a reused buffer. The caller must follow JSON's grammar
/// and pass well-formed UTF-8. Not thread-safe.
class JSONWriter {
 public:
  JSONWriter();
  ~JSONWriter();

  /// Starts a new text.
  void clear();

  void startObject();
  void endObject();
  void startArray();
  void endArray();
  void key(std::string_view text) { string(text); }
  void string(std::string_view text);
  void integer(std::int64_t number);
  void unsignedInteger(std::uint64_t number);
  /// Written so that it reads back as the same double; null when not finite.
  void number(double number);
  void boolean(bool flag);
  void null();

  /// Copies one or more encoded members, such as `"a":1,"b":[]`.
  void members(std::string_view text);

  /// The text written since `clear`; valid until the next call.
  std::string_view text() const;

 private:
  struct Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace veltrano::internal

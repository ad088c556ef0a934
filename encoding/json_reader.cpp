#include "encoding/json_reader.h"

#include "encoding/rapidjson_settings.h"
// The settings come first.
#include <rapidjson/encodedstream.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <charconv>
#include <cstddef>
#include <locale>
#include <sstream>
#include <string>

namespace veltrano::internal {
namespace {

std::optional<double> finiteNumber(std::string_view text) {
  double number = 0;
#ifndef __cpp_lib_to_chars  // libc++ has std::from_chars for integers only
  std::istringstream stream{std::string(text)};
  stream.imbue(std::locale::classic());
  return stream >> number ? std::optional(number) : std::nullopt;
#else
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() ? std::optional(number) : std::nullopt;
#endif
}

// Picks one member of the outermost object during parsing, without building a document.
class MemberNumber : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, MemberNumber> {
 public:
  explicit MemberNumber(std::string_view key) : key_(key) {}

  std::optional<double> number() const { return number_; }

  bool Default() { return value(std::nullopt); }
  bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
    return value(depth_ == 1 && keyMatches_ ? finiteNumber({text, length}) : std::nullopt);
  }

  bool Key(const char* text, rapidjson::SizeType length, bool) {
    if (depth_ == 1) keyMatches_ = std::string_view(text, length) == key_;
    return true;
  }

  bool StartObject() { return open(); }
  bool EndObject(rapidjson::SizeType) { return close(); }
  bool StartArray() { return depth_ > 0 && open(); }
  bool EndArray(rapidjson::SizeType) { return close(); }

 private:
  bool value(std::optional<double> number) {
    if (depth_ == 1 && keyMatches_) number_ = number;
    return depth_ > 0;
  }

  bool open() {
    if (depth_ > 0) value(std::nullopt);
    ++depth_;
    return true;
  }

  bool close() {
    --depth_;
    return true;
  }

  const std::string_view key_;
  std::size_t depth_ = 0;
  bool keyMatches_ = false;
  std::optional<double> number_;
};

}  // namespace

std::optional<double> numberInJSONObject(std::string_view text, std::string_view key) {
  constexpr unsigned kFlags = rapidjson::kParseIterativeFlag |
                              rapidjson::kParseNumbersAsStringsFlag |
                              rapidjson::kParseValidateEncodingFlag;
  rapidjson::MemoryStream bytes(text.data(), text.size());
  rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> stream(bytes);
  MemberNumber member(key);
  rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, ThrowingAllocator> reader;
  const bool isObject = !reader.Parse<kFlags>(stream, member).IsError();
  // The reader stops at a zero byte, too.
  return isObject && stream.Tell() == text.size() ? member.number() : std::nullopt;
}

}  // namespace veltrano::internal

#include "encoding/json_reader.h"

#include "encoding/numbers.h"
#include "encoding/rapidjson_settings.h"
// The settings come first.
#include <rapidjson/encodedstream.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <cstddef>

namespace veltrano::internal {
namespace {

// Picks one member of the outermost object during parsing, without building a document.
class MemberNumber : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, MemberNumber> {
 public:
  explicit MemberNumber(std::string_view key) : key_(key) {}

  std::optional<double> number() const { return number_; }

  bool Default() { return value(std::nullopt); }
  bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
    return value(depth_ == 1 && keyMatches_ ? decimalNumber({text, length}) : std::nullopt);
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

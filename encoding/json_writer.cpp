#include "encoding/json_writer.h"

#include "encoding/rapidjson_settings.h"
// The settings come first.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <cstdint>
#include <cstring>

#include "encoding/utf8.h"

namespace veltrano::internal {
namespace {

// Whether JSON must escape any of eight bytes. `below` sets the high bit of each byte below the
// limit: the subtraction borrows from it.
bool hasToBeEscaped(std::uint64_t eightBytes) {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  constexpr std::uint64_t kHighBits = kOnes * 0x80;
  const auto below = [&](std::uint64_t bytes, std::uint64_t limit) {
    return (bytes - kOnes * limit) & ~bytes & kHighBits;
  };
  return (below(eightBytes, ' ') | below(eightBytes ^ (kOnes * '"'), 1) |
          below(eightBytes ^ (kOnes * '\\'), 1)) != 0;
}

using Buffer = rapidjson::GenericStringBuffer<rapidjson::UTF8<>, ThrowingAllocator>;

class SplicingWriter
    : public rapidjson::Writer<Buffer, rapidjson::UTF8<>, rapidjson::UTF8<>, ThrowingAllocator> {
 public:
  using Writer::Writer;

  // As `String`, but copies text that needs no escape in one piece instead of byte by byte.
  void string(std::string_view text) {
    if (anyEightBytes(text, [](auto bytes) { return hasToBeEscaped(bytes); })) {
      String(text.data(), text.size());
      return;
    }
    Prefix(rapidjson::kStringType);
    char* const quoted = os_->Push(text.size() + 2);
    quoted[0] = '"';
    std::memcpy(quoted + 1, text.data(), text.size());
    quoted[text.size() + 1] = '"';
  }

  void members(std::string_view text) {
    Prefix(rapidjson::kStringType);
    std::memcpy(os_->Push(text.size()), text.data(), text.size());
    // `Prefix` counted one key; this counts its value. RapidJSON only reads from the count whether
    // it is zero and whether a key comes next, so any number of members may count as one.
    ++level_stack_.Top<Level>()->valueCount;
  }
};

}  // namespace

struct JSONWriter::Implementation {
  Buffer buffer;
  SplicingWriter writer{buffer};
};

JSONWriter::JSONWriter() : implementation_(std::make_unique<Implementation>()) {}

JSONWriter::~JSONWriter() = default;

void JSONWriter::clear() {
  constexpr std::size_t kKept = 1 << 20;
  const bool wasLarge = implementation_->buffer.GetSize() > kKept;
  implementation_->buffer.Clear();
  if (wasLarge) implementation_->buffer.ShrinkToFit();
  implementation_->writer.Reset(implementation_->buffer);
}

void JSONWriter::startObject() {
  implementation_->writer.StartObject();
}

void JSONWriter::endObject() {
  implementation_->writer.EndObject();
}

void JSONWriter::startArray() {
  implementation_->writer.StartArray();
}

void JSONWriter::endArray() {
  implementation_->writer.EndArray();
}

void JSONWriter::string(std::string_view text) {
  implementation_->writer.string(text);
}

void JSONWriter::integer(std::int64_t number) {
  implementation_->writer.Int64(number);
}

void JSONWriter::unsignedInteger(std::uint64_t number) {
  implementation_->writer.Uint64(number);
}

void JSONWriter::number(double number) {
  if (std::isfinite(number))
    implementation_->writer.Double(number);
  else
    null();
}

void JSONWriter::boolean(bool flag) {
  implementation_->writer.Bool(flag);
}

void JSONWriter::null() {
  implementation_->writer.Null();
}

void JSONWriter::members(std::string_view text) {
  implementation_->writer.members(text);
}

std::string_view JSONWriter::text() const {
  return {implementation_->buffer.GetString(), implementation_->buffer.GetSize()};
}

}  // namespace veltrano::internal

#include "encoding/utf8.h"

namespace veltrano::internal {
namespace {

struct Sequence {
  std::size_t length;
  bool wellFormed;
};

// The first sequence of `text`: one character, or the longest prefix of an ill-formed one. The
// range of the second byte depends on the first, which excludes overlong forms, surrogates and
// anything beyond U+10FFFF.
Sequence firstSequence(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {1, true};
  if (lead < 0xC2 || lead > 0xF4) return {1, false};

  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  unsigned char lowest = 0x80;
  unsigned char highest = 0xBF;
  if (lead == 0xE0) lowest = 0xA0;
  if (lead == 0xED) highest = 0x9F;
  if (lead == 0xF0) lowest = 0x90;
  if (lead == 0xF4) highest = 0x8F;
  for (std::size_t i = 1; i < length; ++i) {
    if (i == text.size() || byte(i) < lowest || byte(i) > highest) return {i, false};
    lowest = 0x80;
    highest = 0xBF;
  }
  return {length, true};
}

}  // namespace

std::string wellFormedUTF8(std::string_view text) {
  if (isASCII(text)) return std::string(text);

  std::string result;
  result.reserve(text.size());
  for (std::string_view rest = text; !rest.empty();) {
    const Sequence sequence = firstSequence(rest);
    result += sequence.wellFormed ? rest.substr(0, sequence.length) : "\xEF\xBF\xBD";
    rest.remove_prefix(sequence.length);
  }
  return result;
}

}  // namespace veltrano::internal

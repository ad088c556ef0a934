#include "encoding/base64.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace veltrano::internal {
namespace {

// Two characters for every 12 bits. Looking up pairs takes half the time of OpenSSL's Base64.
constexpr auto kPairs = [] {
  constexpr std::string_view kAlphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::array<std::array<char, 2>, 4096> pairs{};
  for (std::size_t i = 0; i < pairs.size(); ++i) pairs[i] = {kAlphabet[i / 64], kAlphabet[i % 64]};
  return pairs;
}();

std::uint64_t byte(const char* bytes, int index) {
  return static_cast<unsigned char>(bytes[index]);
}

// Writes the pair for the 12 bits above `shift`.
char* putPair(char* to, std::uint64_t bits, int shift) {
  std::memcpy(to, kPairs[bits >> shift & 0xFFF].data(), 2);
  return to + 2;
}

char* putThreeBytes(char* to, const char* from) {
  const std::uint64_t bits = byte(from, 0) << 16 | byte(from, 1) << 8 | byte(from, 2);
  return putPair(putPair(to, bits, 12), bits, 0);
}

// Reads two bytes too many, in one expression, so that compilers emit a single 8-byte load.
char* putSixBytes(char* to, const char* from) {
  const std::uint64_t bits = byte(from, 0) << 56 | byte(from, 1) << 48 | byte(from, 2) << 40 |
                             byte(from, 3) << 32 | byte(from, 4) << 24 | byte(from, 5) << 16 |
                             byte(from, 6) << 8 | byte(from, 7);
  return putPair(putPair(putPair(putPair(to, bits, 52), bits, 40), bits, 28), bits, 16);
}

}  // namespace

void appendBase64(std::string& text, std::span<const std::string_view> pieces) {
  std::size_t size = 0;
  for (const std::string_view piece : pieces) size += piece.size();
  const std::size_t begin = text.size();
  text.resize(begin + (size + 2) / 3 * 4);
  char* to = text.data() + begin;

  char group[3];  // a group of three bytes that spans pieces
  std::size_t groupSize = 0;
  for (const std::string_view piece : pieces) {
    const char* from = piece.data();
    const char* const end = from + piece.size();
    while (groupSize > 0 && from != end) {
      group[groupSize++] = *from++;
      if (groupSize < 3) continue;
      to = putThreeBytes(to, group);
      groupSize = 0;
    }
    for (; end - from >= 8; from += 6) to = putSixBytes(to, from);
    for (; end - from >= 3; from += 3) to = putThreeBytes(to, from);
    while (from != end) group[groupSize++] = *from++;
  }
  if (groupSize == 0) return;
  std::fill(group + groupSize, std::end(group), '\0');
  putThreeBytes(to, group);
  std::fill(text.end() - static_cast<std::ptrdiff_t>(3 - groupSize), text.end(), '=');
}

}  // namespace veltrano::internal

#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace veltrano::internal {

/// Whether `test` is true of any of the 8-byte words that cover `text`. The words hold every byte
/// of the text at least once, and no others.
template <class Test>
bool anyEightBytes(std::string_view text, Test test) {
  const char* const begin = text.data();
  const char* const end = begin + text.size();
  const auto load = [](auto word, const char* from) {
    std::memcpy(&word, from, sizeof word);
    return std::uint64_t{word};
  };
  if (text.size() >= 8) {
    for (const char* bytes = begin; end - bytes > 8; bytes += 8)
      if (test(load(std::uint64_t{}, bytes))) return true;
    return test(load(std::uint64_t{}, end - 8));
  }
  if (text.size() >= 4)
    return test(load(std::uint32_t{}, begin) | load(std::uint32_t{}, end - 4) << 32);
  if (text.empty()) return false;
  const auto byte = [](char c) { return std::uint64_t{static_cast<unsigned char>(c)}; };
  return test(byte(*begin) * 0x0101010101010000 | byte(begin[text.size() / 2]) << 8 |
              byte(end[-1]));
}

/// Whether `text` is all ASCII. On the hot path: checks all text that a host passes.
inline bool isASCII(std::string_view text) {
  return !anyEightBytes(text, [](auto bytes) { return (bytes & 0x8080808080808080) != 0; });
}

/// `text` with each maximal ill-formed sequence replaced by U+FFFD.
std::string wellFormedUTF8(std::string_view text);

/// Calls `use` with `text` well-formed, without a copy when it is ASCII.
template <class Use>
void withWellFormed(std::string_view text, Use use) {
  if (isASCII(text))
    use(text);
  else
    use(std::string_view(wellFormedUTF8(text)));
}

}  // namespace veltrano::internal

#include "encoding/base64.h"

#include <openssl/evp.h>

#include <cstddef>

namespace veltrano {
namespace {

// Appends the Base64 form of `bytes`. It has no padding when their number is a multiple of three,
// so that more may follow.
void append(std::string& text, std::string_view bytes) {
  const std::size_t end = text.size();
  text.resize(end + (bytes.size() + 2) / 3 * 4);
  // OpenSSL appends a zero byte, which falls on the string's own.
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data() + end),
                  reinterpret_cast<const unsigned char*>(bytes.data()),
                  static_cast<int>(bytes.size()));
}

}  // namespace

void appendBase64(std::string& text, std::span<const std::string_view> pieces) {
  std::size_t size = 0;
  for (const std::string_view piece : pieces) size += piece.size();
  text.reserve(text.size() + (size + 2) / 3 * 4);

  // The pieces go through a buffer that stays in the processor's cache.
  constexpr std::size_t kBlock = 3 * 1024;
  std::string block;
  block.reserve(kBlock);
  for (std::string_view piece : pieces) {
    while (!piece.empty()) {
      const std::string_view taken = piece.substr(0, kBlock - block.size());
      block += taken;
      piece.remove_prefix(taken.size());
      if (block.size() < kBlock) continue;
      append(text, block);
      block.clear();
    }
  }
  append(text, block);
}

}  // namespace veltrano

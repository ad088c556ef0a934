#include "platform/base64.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstddef>

namespace veltrano {

void appendBase64(std::string& text, std::string_view bytes) {
  // OpenSSL counts in ints. A piece that is a multiple of three bytes ends without padding.
  constexpr std::size_t kMaximumPiece = 3 << 28;
  std::size_t end = text.size();
  text.resize(end + (bytes.size() + 2) / 3 * 4);
  while (!bytes.empty()) {
    const std::size_t piece = std::min(bytes.size(), kMaximumPiece);
    // The zero byte that it appends falls on the next piece or on the string's own terminator.
    end += static_cast<std::size_t>(EVP_EncodeBlock(
        reinterpret_cast<unsigned char*>(text.data() + end),
        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(piece)));
    bytes.remove_prefix(piece);
  }
}

}  // namespace veltrano

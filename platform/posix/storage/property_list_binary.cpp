// The binary form of property lists: objects, a table of their offsets, a trailer. All numbers are
// big-endian. Objects refer to each other by index, possibly many times and in cycles.
#include <utf8proc.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <utility>

#include "encoding/base64.h"
#include "platform/posix/storage/property_list_tree.h"
#include "veltrano/scalars.h"

namespace veltrano::internal {
namespace {

using Kind = PropertyListNode::Kind;

constexpr char32_t kReplacement = 0xFFFD;

void append(char32_t c, std::string& text) {
  const bool isControl = c < 0x20 && c != '\t' && c != '\n' && c != '\r';
  const bool isSurrogate = c >= 0xD800 && c <= 0xDFFF;
  // XML cannot represent these.
  if (isControl || isSurrogate || c == 0xFFFE || c == 0xFFFF) c = kReplacement;
  utf8proc_uint8_t bytes[4];
  const auto size = utf8proc_encode_char(static_cast<utf8proc_int32_t>(c), bytes);
  text.append(bytes, bytes + size);
}

template <class Number>
PropertyListNode number(Kind kind, Number value) {
  char digits[32];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  return {kind, std::string(digits, end), {}};
}

class BinaryReader {
 public:
  explicit BinaryReader(std::string_view bytes) : bytes_(bytes) {
    constexpr std::size_t kTrailerSize = 32;
    if (!bytes.starts_with("bplist0") || bytes.size() < kTrailerSize) throw UnusablePropertyList();
    const std::size_t trailer = bytes.size() - kTrailerSize;
    offsetSize_ = checkedSize(integerAt(trailer + 6, 1));
    referenceSize_ = checkedSize(integerAt(trailer + 7, 1));
    objectCount_ = integerAt(trailer + 8, 8);
    root_ = integerAt(trailer + 16, 8);
    table_ = integerAt(trailer + 24, 8);
    if (table_ > trailer || objectCount_ > (trailer - table_) / offsetSize_)
      throw UnusablePropertyList();
  }

  PropertyListNode read() { return object(root_, 0); }

 private:
  static std::size_t checkedSize(std::uint64_t size) {
    if (size < 1 || size > 8) throw UnusablePropertyList();
    return static_cast<std::size_t>(size);
  }

  // `count` items of `size` bytes each.
  std::string_view bytesAt(std::uint64_t start, std::uint64_t count, std::size_t size = 1) const {
    if (start > bytes_.size() || count > (bytes_.size() - start) / size)
      throw UnusablePropertyList();
    return bytes_.substr(start, count * size);
  }

  std::uint64_t integerAt(std::uint64_t start, std::size_t size) const {
    std::uint64_t integer = 0;
    for (const char byte : bytesAt(start, size))
      integer = integer << 8 | static_cast<unsigned char>(byte);
    return integer;
  }

  PropertyListNode object(std::uint64_t index, int depth) {
    budget_.spendNode(depth);
    if (index >= objectCount_) throw UnusablePropertyList();
    std::uint64_t start = integerAt(table_ + index * offsetSize_, offsetSize_);
    const auto marker = static_cast<unsigned>(integerAt(start, 1));
    ++start;
    const unsigned type = marker >> 4;
    const unsigned low = marker & 0x0F;
    const std::uint64_t size = type >= 0x4 ? count(start, low) : 0;
    switch (type) {
      case 0x0:
        if (low == 0x8) return {Kind::boolean, "false", {}};
        if (low == 0x9) return {Kind::boolean, "true", {}};
        break;
      case 0x1:
        return integer(start, low);
      case 0x2:
        if (low == 2 || low == 3) return number(Kind::real, realAt(start, low));
        break;
      case 0x3:
        if (low == 3) return date(realAt(start, low));
        break;
      case 0x4:
        return data(start, size);
      case 0x5:
        return string(start, size, 1);
      case 0x6:
        return string(start, size, 2);
      case 0xA:
        return array(start, size, depth);
      case 0xD:
        return dictionary(start, size, depth);
      default:
        break;
    }
    throw UnusablePropertyList();
  }

  // How many items follow. A count that does not fit into the marker follows it as an integer, and
  // `start` is moved past that.
  std::uint64_t count(std::uint64_t& start, unsigned low) const {
    if (low != 0x0F) return low;
    const auto marker = static_cast<unsigned>(integerAt(start, 1));
    if (marker < 0x10 || marker > 0x13) throw UnusablePropertyList();
    const std::size_t size = std::size_t{1} << (marker & 0x0F);
    const std::uint64_t count = integerAt(start + 1, size);
    start += 1 + size;
    return count;
  }

  PropertyListNode integer(std::uint64_t start, unsigned log2Size) const {
    if (log2Size < 3) return number(Kind::integer, integerAt(start, std::size_t{1} << log2Size));
    const auto high = static_cast<std::int64_t>(integerAt(start, 8));
    if (log2Size == 3) return number(Kind::integer, high);
    if (log2Size > 4) throw UnusablePropertyList();
    const std::uint64_t low = integerAt(start + 8, 8);
    if (high == 0) return number(Kind::integer, low);
    if (high == -1 && low >> 63 == 1) return number(Kind::integer, static_cast<std::int64_t>(low));
    return number(Kind::real, std::ldexp(static_cast<double>(high), 64) + static_cast<double>(low));
  }

  double realAt(std::uint64_t start, unsigned log2Size) const {
    if (log2Size == 3) return std::bit_cast<double>(integerAt(start, 8));
    return std::bit_cast<float>(static_cast<std::uint32_t>(integerAt(start, 4)));
  }

  static PropertyListNode date(double secondsSince2001) {
    std::string text = Date::fromSecondsSince1970(978'307'200 + secondsSince2001).iso8601();
    text.erase(text.find('.'));  // XML has whole seconds
    return {Kind::date, text + 'Z', {}};
  }

  PropertyListNode data(std::uint64_t start, std::uint64_t size) {
    const std::string_view pieces[] = {bytesAt(start, size)};
    PropertyListNode node{Kind::data, {}, {}};
    appendBase64(node.text, pieces);
    budget_.spendBytes(node.text.size());
    return node;
  }

  PropertyListNode string(std::uint64_t start, std::uint64_t size, std::size_t unitSize) {
    bytesAt(start, size, unitSize);
    PropertyListNode node{Kind::string, {}, {}};
    for (std::uint64_t i = 0; i < size; ++i) {
      char32_t c = static_cast<char32_t>(integerAt(start + i * unitSize, unitSize));
      if (unitSize == 1 && c >= 0x80) c = kReplacement;
      if (c >= 0xD800 && c < 0xDC00 && i + 1 < size) {
        const auto low = static_cast<char32_t>(integerAt(start + (i + 1) * unitSize, unitSize));
        if (low >= 0xDC00 && low < 0xE000) {
          c = 0x10000 + ((c & 0x3FF) << 10) + (low & 0x3FF);
          ++i;
        }
      }
      append(c, node.text);
    }
    budget_.spendBytes(node.text.size());
    return node;
  }

  PropertyListNode referred(std::uint64_t start, std::uint64_t place, int depth) {
    return object(integerAt(start + place * referenceSize_, referenceSize_), depth + 1);
  }

  PropertyListNode array(std::uint64_t start, std::uint64_t size, int depth) {
    bytesAt(start, size, referenceSize_);
    PropertyListNode node{Kind::array, {}, {}};
    for (std::uint64_t i = 0; i < size; ++i) node.items.push_back(referred(start, i, depth));
    return node;
  }

  PropertyListNode dictionary(std::uint64_t start, std::uint64_t size, int depth) {
    bytesAt(start, size, 2 * referenceSize_);
    PropertyListNode node{Kind::dictionary, {}, {}};
    for (std::uint64_t i = 0; i < size; ++i) {
      PropertyListNode key = referred(start, i, depth);
      if (key.kind != Kind::string) throw UnusablePropertyList();
      key.kind = Kind::key;
      node.items.push_back(std::move(key));
      node.items.push_back(referred(start, size + i, depth));
    }
    return node;
  }

  const std::string_view bytes_;
  PropertyListBudget budget_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::uint64_t objectCount_ = 0;
  std::uint64_t root_ = 0;
  std::uint64_t table_ = 0;
};

}  // namespace

PropertyListNode readBinaryPropertyList(std::string_view bytes) {
  return BinaryReader(bytes).read();
}

}  // namespace veltrano::internal

#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace veltrano::internal {

/// An element of a property list in XML. The binary form is read into the same elements.
struct PropertyListNode {
  enum class Kind { array, boolean, data, date, dictionary, integer, key, real, string };

  Kind kind = Kind::dictionary;
  std::string text;                     // between the tags; "true" or "false" for a boolean
  std::vector<PropertyListNode> items;  // alternating keys and values for a dictionary
};

/// Thrown when the text is not a property list or exceeds the budget.
struct UnusablePropertyList {};

/// Bounds the size of a tree: a few bytes of the binary form can describe a huge one.
class PropertyListBudget {
 public:
  static constexpr int kMaxDepth = 64;                   // levels of nesting
  static constexpr std::size_t kMaxNodes = 100'000;      // values and keys
  static constexpr std::size_t kMaxBytes = 8 * 1048576;  // of text and data

  void spendNode(int depth) {
    if (depth > kMaxDepth || ++nodes_ > kMaxNodes) throw UnusablePropertyList();
  }
  void spendBytes(std::size_t count) {
    if (count > kMaxBytes - bytes_) throw UnusablePropertyList();
    bytes_ += count;
  }

 private:
  std::size_t nodes_ = 0;
  std::size_t bytes_ = 0;
};

/// Throw `UnusablePropertyList`, or `std::bad_alloc` if memory runs out.
PropertyListNode readXMLPropertyList(std::string_view text);
PropertyListNode readBinaryPropertyList(std::string_view bytes);

std::string xmlOf(const PropertyListNode& root);

}  // namespace veltrano::internal

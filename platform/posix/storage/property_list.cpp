#include "platform/posix/storage/property_list.h"

#include <charconv>
#include <utility>

#include "encoding/numbers.h"

namespace veltrano::internal {
namespace {

using NodeKind = PropertyListNode::Kind;

}  // namespace

std::optional<PropertyList> PropertyList::parse(std::string_view text) {
  PropertyList list;
  try {
    list.root_ = text.starts_with("bplist") ? readBinaryPropertyList(text)  //
                                            : readXMLPropertyList(text);
  } catch (const UnusablePropertyList&) {
    return std::nullopt;
  }
  if (list.root_.kind != NodeKind::dictionary) return std::nullopt;
  return list;
}

const PropertyListNode* PropertyList::find(std::string_view key) const {
  for (std::size_t i = root_.items.size(); i > 0; i -= 2)
    if (root_.items[i - 2].text == key) return &root_.items[i - 1];
  return nullptr;
}

std::optional<double> PropertyList::number(std::string_view key) const {
  const PropertyListNode* node = find(key);
  if (node == nullptr || (node->kind != NodeKind::integer && node->kind != NodeKind::real))
    return std::nullopt;
  std::string_view digits = node->text;
  if (digits.starts_with('+')) digits.remove_prefix(1);
  return decimalNumber(digits);
}

void PropertyList::setNumber(double number, std::string_view key) {
  char digits[32];
  const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  PropertyListNode value{NodeKind::real, std::string(digits, end), {}};
  if (const PropertyListNode* node = find(key)) {
    root_.items[static_cast<std::size_t>(node - root_.items.data())] = std::move(value);
    return;
  }
  PropertyListNode name{NodeKind::key, std::string(key), {}};
  root_.items.reserve(root_.items.size() + 2);  // both or none
  root_.items.push_back(std::move(name));
  root_.items.push_back(std::move(value));
}

HostMap PropertyList::entries() const {
  HostMap entries;
  for (std::size_t i = 0; i < root_.items.size(); i += 2) {
    const PropertyListNode& value = root_.items[i + 1];
    entries.set(root_.items[i].text,
                value.kind == NodeKind::string ? HostValue(value.text) : HostValue(OtherObject{}));
  }
  return entries;
}

}  // namespace veltrano::internal

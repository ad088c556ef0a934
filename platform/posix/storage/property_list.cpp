#include "platform/posix/storage/property_list.h"

#include <locale.h>
#include <plist/plist.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

namespace veltrano {
namespace {

// The parser reads numbers as the thread's locale writes them.
class PlainLocale {
 public:
  PlainLocale() {
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    if (plain != nullptr) before_ = uselocale(plain);
  }
  ~PlainLocale() {
    if (before_ != nullptr) uselocale(before_);
  }
  PlainLocale(const PlainLocale&) = delete;
  PlainLocale& operator=(const PlainLocale&) = delete;

 private:
  locale_t before_ = nullptr;
};

constexpr int kDeepest = 64;  // deeper contents are left out, so that the stack suffices

HostValue valueOf(plist_t node, int depth);

HostValue arrayOf(plist_t node, int depth) {
  std::vector<HostValue> elements;
  const std::uint32_t size = plist_array_get_size(node);
  for (std::uint32_t i = 0; i < size; ++i)
    elements.push_back(valueOf(plist_array_get_item(node, i), depth + 1));
  return Array(std::move(elements));
}

HostMap mapOf(plist_t node, int depth) {
  HostMap entries;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  for (;;) {
    char* key = nullptr;
    plist_t value = nullptr;
    plist_dict_next_item(node, iterator, &key, &value);
    if (key != nullptr && value != nullptr) entries.set(key, valueOf(value, depth + 1));
    free(key);
    if (value == nullptr) break;
  }
  free(iterator);
  return entries;
}

HostValue dateOf(plist_t node) {
  constexpr double kEpoch = 978307200;  // property lists count from 2001
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  plist_get_date_val(node, &seconds, &microseconds);
  return Date::fromSecondsSince1970(kEpoch + seconds + microseconds / 1e6);
}

std::int64_t integerOf(plist_t node) {
  std::uint64_t bits = 0;
  plist_get_uint_val(node, &bits);
  return static_cast<std::int64_t>(bits);
}

double realOf(plist_t node) {
  double number = 0;
  plist_get_real_val(node, &number);
  return number;
}

bool booleanOf(plist_t node) {
  std::uint8_t flag = 0;
  plist_get_bool_val(node, &flag);
  return flag != 0;
}

std::string textOf(plist_t node) {
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return text != nullptr ? std::string(text, length) : std::string();
}

HostValue valueOf(plist_t node, int depth) {
  if (depth > kDeepest) return OtherObject{};
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN:
      return booleanOf(node);
    case PLIST_UINT:
      return integerOf(node);
    case PLIST_REAL:
      return realOf(node);
    case PLIST_STRING:
      return textOf(node);
    case PLIST_DATE:
      return dateOf(node);
    case PLIST_ARRAY:
      return arrayOf(node, depth);
    case PLIST_DICT:
      return mapOf(node, depth);
    default:
      return OtherObject{};
  }
}

// How deep containers nest in a property list written as XML, at the most.
int deepestNesting(std::string_view xml) {
  int depth = 0;
  int deepest = 0;
  for (auto tag = xml.find('<'); tag != std::string_view::npos; tag = xml.find('<', tag + 1)) {
    const auto rest = xml.substr(tag);
    const auto isTag = [rest](std::string_view name) { return rest.starts_with(name); };
    if (isTag("<dict>") || isTag("<array>")) deepest = std::max(deepest, ++depth);
    if (isTag("</dict>") || isTag("</array>")) --depth;
  }
  return deepest;
}

// Whether the stack suffices for libplist, which walks the containers one inside the other.
bool isShallow(std::string_view text) {
  constexpr std::size_t kLongestBinary = 16 * 1024;  // in which there is no room for many
  if (text.starts_with("bplist")) return text.size() <= kLongestBinary;
  return deepestNesting(text) <= kDeepest;
}

}  // namespace

void PropertyList::Free::operator()(void* root) const {
  plist_free(root);
}

PropertyList::PropertyList() : root_(plist_new_dict()) {}

PropertyList::PropertyList(void* root) : root_(root) {}

std::optional<PropertyList> PropertyList::parse(std::string_view text) {
  if (!isShallow(text)) return std::nullopt;
  const PlainLocale locale;
  plist_t root = nullptr;
  plist_from_memory(text.data(), static_cast<std::uint32_t>(text.size()), &root);
  PropertyList list(root);
  if (root == nullptr || plist_get_node_type(root) != PLIST_DICT) return std::nullopt;
  return list;
}

std::optional<double> PropertyList::number(const std::string& key) const {
  const plist_t node = plist_dict_get_item(root_.get(), key.c_str());
  if (node == nullptr) return std::nullopt;
  switch (plist_get_node_type(node)) {
    case PLIST_REAL:
      return realOf(node);
    case PLIST_UINT:
      return static_cast<double>(integerOf(node));
    default:
      return std::nullopt;
  }
}

void PropertyList::setNumber(double number, const std::string& key) {
  plist_dict_set_item(root_.get(), key.c_str(), plist_new_real(number));
}

HostMap PropertyList::entries() const {
  return mapOf(root_.get(), 0);
}

std::string PropertyList::xml() const {
  const PlainLocale locale;
  char* text = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(root_.get(), &text, &length);
  std::string xml = text != nullptr ? std::string(text, length) : std::string();
  plist_to_xml_free(text);
  return xml;
}

}  // namespace veltrano

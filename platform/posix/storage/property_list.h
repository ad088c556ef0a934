#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/posix/storage/property_list_tree.h"
#include "veltrano/value.h"

namespace veltrano::internal {

/// A property list whose root is a dictionary. Independent of the host's locale.
class PropertyList {
 public:
  /// Reads the XML or the binary form; none when `text` is neither, its root is no dictionary, or
  /// it exceeds a bound of `PropertyListBudget`. Throws `std::bad_alloc`.
  static std::optional<PropertyList> parse(std::string_view text);

  /// The real number or integer under `key`; none when there is none.
  std::optional<double> number(std::string_view key) const;

  void setNumber(double number, std::string_view key);

  /// Strings as text. All else counts as another object; nobody asks for more.
  HostMap entries() const;

  std::string xml() const { return xmlOf(root_); }

 private:
  // The value under `key`; of equal keys the last one's.
  const PropertyListNode* find(std::string_view key) const;

  PropertyListNode root_;
};

}  // namespace veltrano::internal

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
  /// Reads the XML or the binary form. None when `text` is neither, its root is not a dictionary,
  /// or it exceeds `PropertyListBudget`. Throws `std::bad_alloc`.
  static std::optional<PropertyList> parse(std::string_view text);

  /// The value of `key` if it is a real number or an integer.
  std::optional<double> number(std::string_view key) const;

  void setNumber(double number, std::string_view key);

  /// Strings become text, everything else `OtherObject`: callers only need strings.
  HostMap entries() const;

  std::string xml() const { return xmlOf(root_); }

 private:
  // The value of `key`, or null. Among equal keys, the last one wins.
  const PropertyListNode* find(std::string_view key) const;

  PropertyListNode root_;
};

}  // namespace veltrano::internal

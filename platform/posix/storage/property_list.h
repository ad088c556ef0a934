#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "veltrano/value.h"

namespace veltrano {

/// A property list whose root is a dictionary. Independent of the host's locale.
class PropertyList {
 public:
  /// An empty one.
  PropertyList();

  /// Reads the XML or the binary form; none when `text` is neither, or its root no dictionary.
  static std::optional<PropertyList> parse(std::string_view text);

  /// The real number or integer under `key`; none when there is none.
  std::optional<double> number(const std::string& key) const;

  void setNumber(double number, const std::string& key);

  HostMap entries() const;

  std::string xml() const;

 private:
  struct Free {
    void operator()(void* root) const;
  };
  explicit PropertyList(void* root);

  std::unique_ptr<void, Free> root_;
};

}  // namespace veltrano

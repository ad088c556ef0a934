#include <algorithm>
#include <utility>

#include "tools/plan/commands.h"

namespace veltrano::planning {
namespace {

class Comparison {
 public:
  void compare(const Schema& older, const Schema& newer, const std::string& path) {
    if (older.type != newer.type)
      return add(true, path, "was " + older.text() + ", is " + newer.text());
    std::string narrower, wider;
    for (const std::string& value : older.values)
      if (!contains(newer.values, value)) narrower += " without " + quoted(value);
    for (const std::string& value : newer.values)
      if (!contains(older.values, value)) wider += " with " + quoted(value);
    // Without an enumeration, any text is allowed.
    if (older.values.empty()) std::swap(narrower, wider);
    if (newer.values.empty()) wider = std::exchange(narrower, "");
    compareBounds(older, newer, narrower, wider);
    if (older.pattern != newer.pattern)
      (newer.pattern.empty() ? wider : narrower) += " pattern " + quoted(newer.pattern);
    if (older.isOpen != newer.isOpen) (newer.isOpen ? wider : narrower) += " further properties";
    if (!narrower.empty()) add(true, path, "is narrower:" + narrower);
    if (!wider.empty()) add(false, path, "is wider:" + wider);
    if (!older.element.empty()) compare(older.element[0], newer.element[0], path + "[]");
    compareAll(older.properties, newer.properties, path + '.');
  }

  // Events or properties, by their names.
  void compareAll(const std::vector<Property>& older, const std::vector<Property>& newer,
                  const std::string& path) {
    const auto find = [](const std::vector<Property>& items, const std::string& name) {
      return std::find_if(items.begin(), items.end(),
                          [&](const Property& item) { return item.name == name; });
    };
    for (const Property& item : older) {
      const auto counterpart = find(newer, item.name);
      if (counterpart == newer.end()) {
        add(true, path + item.name, "is removed");
        continue;
      }
      if (item.isRequired != counterpart->isRequired)
        add(counterpart->isRequired, path + item.name,
            counterpart->isRequired ? "is newly required" : "may be left out now");
      compare(item.schema, counterpart->schema, path + item.name);
    }
    for (const Property& item : newer)
      if (find(older, item.name) == older.end())
        add(item.isRequired, path + item.name, item.isRequired ? "is new and required" : "is new");
  }

  std::vector<Difference> found;

 private:
  void add(bool isBreak, const std::string& path, const std::string& what) {
    found.push_back({isBreak, path + ' ' + what});
  }

  static bool contains(const std::vector<std::string>& values, const std::string& value) {
    return std::find(values.begin(), values.end(), value) != values.end();
  }

  static void compareBounds(const Schema& older, const Schema& newer, std::string& narrower,
                            std::string& wider) {
    auto words = older.bounds;
    words.insert(newer.bounds.begin(), newer.bounds.end());
    for (const auto& [word, either] : words) {
      const auto was = older.bounds.find(word), is = newer.bounds.find(word);
      const bool isLess =
          is != newer.bounds.end() && was != older.bounds.end() && is->second < was->second;
      const bool isLeast = word.find("in") != word.npos && word.find("ax") == word.npos;
      if (was == older.bounds.end())
        narrower += ' ' + word + ' ' + numberText(is->second);
      else if (is == newer.bounds.end())
        wider += " no " + word;
      else if (was->second != is->second)
        (isLess == isLeast ? wider : narrower) += ' ' + word + ' ' + numberText(is->second);
    }
  }
};

}  // namespace

std::vector<Difference> differences(const Plan& older, const Plan& newer) {
  Comparison comparison;
  comparison.compareAll(older.events, newer.events, "");
  comparison.compare(older.superProperties, newer.superProperties, "super properties");
  return std::move(comparison.found);
}

}  // namespace veltrano::planning

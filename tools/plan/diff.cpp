#include <algorithm>
#include <utility>

#include "tools/plan/commands.h"

namespace veltrano::planning {
namespace {

constexpr bool kBreaks = true;

class Comparison {
 public:
  void compare(const Schema& older, const Schema& newer, const std::string& path) {
    if (older.type != newer.type)
      return add(kBreaks, path, "was " + older.text() + ", is " + newer.text());
    std::string narrower, wider;
    if (older.values.empty() != newer.values.empty())
      newer.values.empty() ? wider += " any text" : narrower += " only " + newer.text();
    else
      narrower = missing(older.values, newer.values, " without "),
      wider = missing(newer.values, older.values, " with ");
    for (Bound Schema::*const side : {&Schema::least, &Schema::most}) {
      const Bound &was = older.*side, &is = newer.*side;
      if (was.word == is.word && was.value == is.value) continue;
      const bool isWider = side == &Schema::least ? is.end <= was.end : is.end >= was.end;
      (isWider ? wider : narrower) +=
          ' ' + (is.word.empty() ? "no " + was.word : is.word + ' ' + numberText(is.value));
    }
    if (older.pattern != newer.pattern)
      newer.pattern.empty() ? wider += " no pattern"
                            : narrower += " pattern " + inQuotes(newer.pattern);
    if (older.isOpen != newer.isOpen)
      newer.isOpen ? wider += " further properties" : narrower += " no further properties";
    if (!narrower.empty()) add(kBreaks, path, "is narrower:" + narrower);
    if (!wider.empty()) add(!kBreaks, path, "is wider:" + wider);
    if (!older.element.empty()) compare(older.element[0], newer.element[0], path + "[]");
    compareAll(older.properties, newer.properties, path + '.');
  }

  // Events or properties, by their names.
  void compareAll(const std::vector<Property>& older, const std::vector<Property>& newer,
                  const std::string& path) {
    std::size_t place = 0;
    bool isMoved = false;
    for (const auto& [name, schema, wasRequired] : older) {
      const Property* const now = find(newer, name);
      if (now == nullptr) {
        add(kBreaks, path + name, "is removed");
        continue;
      }
      isMoved |= now != &newer[place++];
      if (wasRequired != now->isRequired)
        add(now->isRequired, path + name,
            now->isRequired ? "is newly required" : "may be left out now");
      compare(schema, now->schema, path + name);
    }
    if (isMoved && !path.empty())
      add(!kBreaks, path + '*', "moved: C++17 hosts, which fill them in order, have to follow");
    for (const auto& [name, schema, isRequired] : newer)
      if (find(older, name) == nullptr)
        add(isRequired, path + name, isRequired ? "is new and required" : "is new");
  }

  std::vector<std::string> found;

 private:
  void add(bool isBreak, const std::string& path, const std::string& what) {
    found.push_back((isBreak ? "breaking: " : "compatible: ") + path + ' ' + what);
  }

  static std::string missing(const std::vector<std::string>& values,
                             const std::vector<std::string>& among, const char* word) {
    std::string missing;
    for (const std::string& value : values)
      if (std::find(among.begin(), among.end(), value) == among.end())
        missing += word + inQuotes(value);
    return missing;
  }
};

}  // namespace

std::vector<std::string> differences(const Plan& older, const Plan& newer) {
  Comparison comparison;
  if (older.nameSpace != newer.nameSpace)
    comparison.found.push_back("compatible: the namespace was " + older.nameSpace + ", is " +
                               newer.nameSpace);
  comparison.compareAll(older.events, newer.events, "");
  comparison.compare(older.superProperties, newer.superProperties, "super properties");
  return std::move(comparison.found);
}

}  // namespace veltrano::planning

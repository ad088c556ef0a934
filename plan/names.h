// Identifiers for the names in a plan.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace veltrano::planning {

/// The name as a member or an enumerator: what an identifier cannot hold becomes "_", other
/// alphabets "uXXXX", and a reserved word ends with "_". Empty if nothing is left.
std::string memberName(std::string_view name);

/// The name as a type of C++, such as SongPlayed.
std::string typeName(std::string_view name);

/// The name of a property as the type of its values, which its member cannot have, too.
std::string nestedTypeName(std::string_view name);

/// The name as part of an identifier of C, such as song_played.
std::string snakeName(std::string_view name);
std::string upperCase(std::string text);

/// The identifiers of a scope.
class Scope {
 public:
  /// Returns the name that has the identifier already, or nothing after giving it to `name`.
  std::string_view take(const std::string& identifier, std::string_view name) {
    const auto [place, isNew] = taken_.emplace(identifier, name);
    return isNew ? std::string_view() : std::string_view(place->second);
  }

 private:
  std::map<std::string, std::string> taken_;
};

}  // namespace veltrano::planning

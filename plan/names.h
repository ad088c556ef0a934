// Identifiers for the names in a plan.
#pragma once

#include <string>
#include <string_view>

namespace veltrano::planning {

/// Why no plan can have a name, such as `"..." has control characters`; empty if one can.
std::string faultOfName(std::string_view name);

/// Whether a namespace cannot have the name, because common headers use it.
bool isGlobal(const std::string& identifier);

/// The name as a member or an enumerator: what an identifier cannot hold becomes "_", other
/// alphabets "uXXXX", and a reserved word or what could be a macro, such as EOF, ends with "_".
/// Empty if nothing is left.
std::string memberName(std::string_view name);

/// The name as a type of C++, such as SongPlayed.
std::string typeName(std::string_view name);

/// The name of a property as the type of its values, which neither its member nor the type that it
/// is in can have, too.
std::string nestedTypeName(std::string_view name, std::string_view enclosing);

/// The name as part of an identifier of C, such as song_played or SONG_PLAYED.
std::string snakeName(std::string_view name);
std::string upperCase(std::string text);

}  // namespace veltrano::planning

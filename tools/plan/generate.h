// Writes headers with the events of a plan as types.
#pragma once

#include <initializer_list>
#include <map>
#include <string>
#include <string_view>

#include "plan/plan.h"

namespace veltrano::planning {

/// The contents of headers by their names: one that includes all, and one for each event, so that
/// what a source file does not use does not slow its compilation down.
using Headers = std::map<std::string, std::string>;

Headers headersForCPP(const Plan& plan);
Headers headersForC(const Plan& plan);

/// Starts every header that is generated.
inline constexpr std::string_view kMark = "// Written by veltrano-plan. Change the plan instead.\n";

/// The form with the values in place of $0, $1 and so on.
std::string filled(std::string_view form, std::initializer_list<std::string> values);

/// The text as a literal of C.
std::string literal(std::string_view text);

/// A description as a line of comment, indented; nothing if it is empty.
std::string comment(std::string_view description, const std::string& indent);

/// Adds a header that includes all others.
void addHeaderOfAll(Headers& headers, const std::string& name);

}  // namespace veltrano::planning

// Converts values to JSON and back.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "encoding/json_writer.h"
#include "veltrano/value.h"

namespace veltrano::testing {

/// The contents of a dictionary with only text keys; none for anything else.
std::optional<HostMap> mapIn(const HostValue& value);

/// Whether the value is an infinity or NaN, which JSON cannot express.
bool isNotFinite(const HostValue& value);

/// Writes a value in the format of scenarios, which preserves its type.
void writeScenarioValue(internal::JSONWriter& writer, const HostValue& value);

/// Writes a map in that format. The key "$" has no special meaning here.
void writeScenarioMap(internal::JSONWriter& writer, const HostMap& map);

/// The value of a JSON text; absent if the text is malformed.
HostValue parsedJSON(std::string_view text);

}  // namespace veltrano::testing

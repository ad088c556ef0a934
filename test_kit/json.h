// Converts values to JSON and back.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "veltrano/value.h"

namespace veltrano::testing {

/// The texts, separated by commas.
std::string joined(const std::vector<std::string>& texts);

/// The contents of a dictionary with only text keys; none for anything else.
std::optional<HostMap> mapIn(const HostValue& value);

/// Whether the value is an infinity or NaN, which JSON cannot express.
bool isNotFinite(const HostValue& value);

/// A value in the format of scenarios, which preserves its type.
std::string scenarioText(const HostValue& value);

/// A map in that format. The key "$" has no special meaning here.
std::string scenarioText(const HostMap& map);

/// The "properties" of an event or a heartbeat as it is sent.
HostMap propertiesIn(std::string_view json);

}  // namespace veltrano::testing

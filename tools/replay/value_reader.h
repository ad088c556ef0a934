#pragma once

#include "tools/replay/json.h"
#include "veltrano/value.h"

namespace replay {

/// Converts plain JSON, or {"$": kind, ...} for values that JSON cannot represent, to a property
/// value. Throws ScenarioError when `value` is neither.
veltrano::HostValue readValue(const JSONValue& value);

/// Converts an object to a map. `$` is an ordinary key in it.
veltrano::HostMap readMap(const JSONValue& object);

}  // namespace replay

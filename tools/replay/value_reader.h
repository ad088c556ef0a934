#pragma once

#include "tools/replay/json_text.h"
#include "veltrano/value.h"

namespace replay {

/// The property value that `value` stands for: plain JSON, or {"$": kind, ...} for what JSON has no
/// form for. Throws ScenarioError when it stands for none.
veltrano::HostValue readValue(const JsonText& json, const JsonText::Value& value);

/// The map that an object stands for; `$` is a key like any other in it.
veltrano::HostMap readMap(const JsonText& json, const JsonText::Value& object);

}  // namespace replay

// Values as JSON, and what the library sent as values.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "encoding/json_writer.h"
#include "veltrano/value.h"

namespace veltrano::testing {

/// The contents of a dictionary all of whose keys are text; none for everything else.
std::optional<HostMap> mapIn(const HostValue& value);

/// Writes a value as people read it: as it is sent, but with a word for what cannot be.
std::string readableText(const HostValue& value);

/// Writes a value as scenarios do, so that it is read back as what it is.
void writeScenarioValue(internal::JSONWriter& writer, const HostValue& value);

/// Like it, but each key is one like any other.
void writeScenarioMap(internal::JSONWriter& writer, const HostMap& map);

/// The value that a JSON text is; absent when it is none.
HostValue parsedJSON(std::string_view text);

/// The JSON text in the body of a post, "data=" and Base64 taken away.
std::string decodedBody(std::string_view body);

}  // namespace veltrano::testing

#pragma once

#include <optional>
#include <string_view>

namespace veltrano {

/// The collection host's answer to a heartbeat.
struct VLTrackingEvent {
  /// Reads an answer. What is no JSON object says nothing, nor does a back-off that is no number.
  static VLTrackingEvent fromJSON(std::string_view text);

  /// The interval that the host asks for from now on.
  std::optional<double> backOffSeconds;
};

}  // namespace veltrano

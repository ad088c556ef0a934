#include "heartbeat/vl_tracking_event.h"

#include "encoding/json_reader.h"

namespace veltrano {

VLTrackingEvent VLTrackingEvent::fromJSON(std::string_view text) {
  return {.backOffSeconds = numberInJSONObject(text, "back_off_seconds")};
}

}  // namespace veltrano

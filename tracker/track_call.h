#pragma once

#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "platform/work_queue.h"
#include "properties/flat.h"
#include "tracker/event_encoder.h"
#include "veltrano/veltrano.h"

namespace veltrano::internal {

class Tracker;

/// One call of `track` on its way to the work queue. Everything that the host passed is copied
/// behind the object, as it is, and read only on the work queue:
///
///     | TrackCall | String: event name | String: carrier, or Absent | Dictionary, or Absent |
///                  `---- three values in the flat form (properties/flat.h), unaligned ----'
///
/// Calls stand one behind the other in chunks of 4 KB, of which each calling thread fills its own:
/// a call then costs no allocation, and no two threads write into the same memory. The last call
/// of a full chunk frees it.
class TrackCall final : public Block {
 public:
  static std::unique_ptr<Block> make(Tracker& tracker, const AutomaticProperties& automatic,
                                     const std::optional<std::string>& carrier,
                                     std::string_view eventName, const HostMapView& properties,
                                     Veltrano::FlushCompletion&& completion);

  static void operator delete(TrackCall* call, std::destroying_delete_t);

  void run() override;

 private:
  class Memory;
  struct Chunk;

  TrackCall(Tracker& tracker, const AutomaticProperties& automatic,
            Veltrano::FlushCompletion&& completion, Chunk& chunk)
      : tracker_(tracker),
        automatic_(automatic),
        completion_(std::move(completion)),
        chunk_(chunk) {}

  Tracker& tracker_;
  const AutomaticProperties automatic_;
  Veltrano::FlushCompletion completion_;
  Chunk& chunk_;
};

}  // namespace veltrano::internal

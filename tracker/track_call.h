#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/host_callback.h"
#include "platform/work_queue.h"
#include "properties/flat.h"
#include "tracker/event_encoder.h"

namespace veltrano::internal {

class Tracker;

/// Memory of calls that wait for the work queue, handed over to it. Counted for the whole process.
class WaitingMemory {
 public:
  static constexpr std::size_t kLimit = std::size_t{64} << 20;

  explicit WaitingMemory(std::size_t size) : size_(size) { inAll += size_; }
  WaitingMemory(WaitingMemory&& other) noexcept : size_(std::exchange(other.size_, 0)) {}
  WaitingMemory& operator=(WaitingMemory&&) = delete;
  ~WaitingMemory() { inAll -= size_; }

  static bool isFull() { return inAll.load(std::memory_order_relaxed) >= kLimit; }

 private:
  static inline std::atomic<std::size_t> inAll{0};

  std::size_t size_;
};

/// One call of `track` on its way to the work queue. The host's arguments are copied unchanged
/// behind the object and read on the work queue:
///
///     | TrackCall | String: event name | String: carrier, or Absent | Dictionary, or Absent |
///                  `---- three values in the flat form (properties/flat.h), unaligned ----'
///
/// Calls are stored back to back in 4 KB chunks, one chunk per calling thread, so most calls
/// allocate nothing and no two threads write to the same memory. Destroying its last call frees a
/// full chunk.
class TrackCall final : public Block {
 public:
  /// Null when the calls that wait take `WaitingMemory::kLimit` already and this one has no
  /// completion.
  static std::unique_ptr<Block> make(Tracker& tracker, const AutomaticProperties& automatic,
                                     const std::optional<std::string>& carrier,
                                     std::string_view eventName, const HostMapView& properties,
                                     HostFunction<bool>&& completion);

  static void operator delete(TrackCall* call, std::destroying_delete_t);

  void run() override;
  void drop() override;

 private:
  class Memory;
  struct Chunk;

  TrackCall(Tracker& tracker, const AutomaticProperties& automatic, HostFunction<bool>&& completion,
            Chunk& chunk)
      : tracker_(tracker),
        automatic_(automatic),
        completion_(std::move(completion)),
        chunk_(chunk) {}

  Tracker& tracker_;
  const AutomaticProperties automatic_;
  HostFunction<bool> completion_;
  Chunk& chunk_;
};

}  // namespace veltrano::internal

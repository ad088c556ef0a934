#include "tracker/track_call.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

#include "tracker/tracker.h"

namespace veltrano::internal {
namespace {

// With an allocation for each call instead, a call takes 20 ns more.
constexpr std::size_t kChunkSize = 4096;
constexpr std::size_t kFirstSize = 512;
constexpr std::size_t kAlignment = alignof(TrackCall);

}  // namespace

static_assert(kAlignment <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

struct alignas(kAlignment) TrackCall::Chunk {
  static Chunk* make(std::size_t size) { return new (::operator new(size)) Chunk(size); }

  /// Called by the filling thread when it adds no more calls.
  void retire() {
    handedOver.emplace(size);
    drop(kOpen - made);
  }

  void drop(std::int32_t count) {
    if (live.fetch_sub(count, std::memory_order_acq_rel) == count) delete this;
  }

  static void operator delete(void* chunk) { ::operator delete(chunk); }

  char* bytes() { return reinterpret_cast<char*>(this); }

  // Counts as live calls until the chunk retires, so that the filling thread need not update the
  // shared count for each call.
  static constexpr std::int32_t kOpen = 1 << 30;

  const std::size_t size;
  bool isCached = false;             // the filling thread keeps it for its next call
  std::size_t used = sizeof(Chunk);  // filling thread only
  std::int32_t made = 0;             // filling thread only; calls in this chunk
  std::atomic<std::int32_t> live{kOpen};
  std::optional<WaitingMemory> handedOver;  // once retired

 private:
  explicit Chunk(std::size_t sizeInBytes) : size(sizeInBytes) {}
};

/// Writes a call at the end of the thread's chunk. Uses up no memory until `finish`.
class TrackCall::Memory final : public FlatWriter {
 public:
  /// The calling thread's chunk, with room for a call. Null when the calls that wait have reached
  /// their limit and this one `isDroppable`.
  static Chunk* take(const Platform& platform, bool isDroppable) {
    if (isDroppable && WaitingMemory::isFull()) return nullptr;
    Thread& thread = callingThread;
    constexpr std::size_t kLeast = sizeof(TrackCall) + 64;
    if (thread.chunk != nullptr && thread.chunk->size - thread.chunk->used < kLeast)
      std::exchange(thread.chunk, nullptr)->retire();
    if (thread.chunk != nullptr) return std::exchange(thread.chunk, nullptr);
    if (thread.use == Use::secondCall)
      thread.use = platform.callAtThreadEnd(endThread) ? Use::keepsChunk : Use::keepsNothing;
    return makeChunk(thread, thread.use == Use::keepsChunk ? kChunkSize : kFirstSize);
  }

  explicit Memory(Chunk& chunk) : FlatWriter(nullptr, nullptr, -1), chunk_(&chunk) {
    begin_ = chunk_->bytes() + chunk_->used;
    end_ = chunk_->bytes() + chunk_->size;
    at_ = begin_ + sizeof(TrackCall);
  }

  /// Returns the chunk to the thread, unless it has got another one: a host's container may track
  /// while it is read.
  ~Memory() {
    if (thread_.use == Use::firstCall) thread_.use = Use::secondCall;
    if (thread_.chunk == nullptr && chunk_->isCached)
      thread_.chunk = chunk_;
    else
      chunk_->retire();
  }

  Chunk& chunk() { return *chunk_; }

  /// The address for the call; its values follow it.
  void* finish() {
    const auto end = static_cast<std::size_t>(at_ - chunk_->bytes());
    chunk_->used = std::min((end + kAlignment - 1) / kAlignment * kAlignment, chunk_->size);
    ++chunk_->made;
    return begin_;
  }

 private:
  // A thread keeps a chunk from its second call until it ends. Otherwise, and if its end would go
  // unnoticed, each call frees its own memory.
  enum class Use : std::uint8_t { firstCall, secondCall, keepsChunk, keepsNothing };

  struct Thread {
    Chunk* chunk = nullptr;
    Use use = Use::firstCall;
  };

  static void endThread() {
    callingThread.use = Use::keepsNothing;
    if (callingThread.chunk != nullptr) std::exchange(callingThread.chunk, nullptr)->retire();
  }

  static Chunk* makeChunk(const Thread& thread, std::size_t size) {
    Chunk* const chunk = Chunk::make(size);
    chunk->isCached = size == kChunkSize && thread.use == Use::keepsChunk;
    return chunk;
  }

  void grow(std::size_t size) override {
    const auto used = static_cast<std::size_t>(at_ - begin_);
    const std::size_t least = sizeof(Chunk) + used + size;
    // A large call gets its own chunk, sized tightly if one large text fills it.
    const bool isLarge = least > kChunkSize / 2;
    const std::size_t spare = std::exchange(isLarge_, isLarge) ? least : kFirstSize;
    Chunk* const larger = makeChunk(thread_, isLarge ? least + spare : kChunkSize);
    char* const begin = larger->bytes() + larger->used;
    std::memcpy(begin + sizeof(TrackCall), begin_ + sizeof(TrackCall), used - sizeof(TrackCall));
    Chunk* const left = std::exchange(chunk_, larger);
    if (isLarge && left->isCached && thread_.chunk == nullptr)
      thread_.chunk = left;
    else
      left->retire();
    begin_ = begin;
    at_ = begin + used;
    end_ = larger->bytes() + larger->size;
  }

  // Two words in the space that the C library keeps for libraries which are opened late. As usual
  // thread-locals of a shared library, they would be found by a call.
  [[gnu::tls_model("initial-exec")]] static constinit thread_local Thread callingThread;

  Thread& thread_ = callingThread;  // looked up once: in a shared library this takes a call
  Chunk* chunk_;
  bool isLarge_ = false;
};

// The model again: link-time optimisation forgets that of the declaration.
[[gnu::tls_model("initial-exec")]] constinit thread_local TrackCall::Memory::Thread
    TrackCall::Memory::callingThread;

[[gnu::hot]] std::unique_ptr<Block> TrackCall::make(Tracker& tracker,
                                                    const AutomaticProperties& automatic,
                                                    const std::optional<std::string>& carrier,
                                                    std::string_view eventName,
                                                    const HostMapView& properties,
                                                    HostFunction<bool>&& completion) {
  Chunk* const taken = Memory::take(tracker.platform_, !completion);
  if (taken == nullptr) return nullptr;
  Memory memory(*taken);
  memory.text(Kind::String, eventName);
  if (carrier)
    memory.text(Kind::String, *carrier);
  else
    memory.absent();
  memory.value(properties.argument());
  Chunk& chunk = memory.chunk();
  return std::unique_ptr<Block>(new (memory.finish())
                                    TrackCall(tracker, automatic, std::move(completion), chunk));
}

void TrackCall::operator delete(TrackCall* call, std::destroying_delete_t) {
  Chunk& chunk = call->chunk_;
  call->~TrackCall();
  chunk.drop(1);
}

void TrackCall::drop() {
  tracker_.accounting_.eventLostInShutDown();
}

void TrackCall::run() {
  const FlatView eventName(reinterpret_cast<const char*>(this + 1));
  const FlatView carrier(eventName.data() + eventName.bytes().size());
  const FlatView properties(carrier.data() + carrier.bytes().size());
  tracker_.record(eventName.text(), automatic_, carrier, properties, std::move(completion_),
                  !isDeferred);
}

}  // namespace veltrano::internal

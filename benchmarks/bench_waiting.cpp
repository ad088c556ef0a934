// Measures the memory of waiting events and calls, including the allocator's overhead, and how
// often a call with a prebuilt map allocates.
#include <fmt/format.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "benchmarks/bench_platform.h"
#include "benchmarks/figures.h"
#include "benchmarks/host.h"
#include "benchmarks/scripted_url_session.h"
#include "veltrano/veltrano.h"

namespace {

using Answer = bench::ScriptedURLSession::Answer;

std::atomic<std::size_t> bytesInUse{0};
thread_local int allocations = 0;

constexpr std::size_t kChunkHeader = 8;  // glibc's overhead per block

}  // namespace

// Not inlined, so that the compiler cannot pair malloc and free and remove both.
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* const block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  bytesInUse += malloc_usable_size(block) + kChunkHeader;
  ++allocations;
  return block;
}

[[gnu::noinline]] void operator delete(void* block) noexcept {
  if (block != nullptr) bytesInUse -= malloc_usable_size(block) + kChunkHeader;
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
  operator delete(block);
}

namespace {

void track(int count) {
  for (int i = 0; i < count; ++i) bench::trackWithProperties();
}

// The size of the JSON whose Base64 is the body.
double jsonSize(std::size_t bodySize) {
  return static_cast<double>(bodySize) / 4 * 3;
}

}  // namespace

int main() {
  auto& session = *new bench::ScriptedURLSession(Answer::refuse);
  bench::installBenchPlatform(session);

  // 100 more events wait at the second reading than at the first.
  track(50);
  bench::drain();
  const double few = static_cast<double>(bytesInUse.load());
  const std::size_t smallBody = session.lastBodySize();
  track(99);
  bench::drain();
  const double eventSize = (static_cast<double>(bytesInUse.load()) - few) / 100;
  const double eventJSON = jsonSize(session.lastBodySize() - smallBody) / 100;
  bench::printRatio("memory per event that waits in the queue", bench::sizeText(eventSize),
                    bench::sizeText(eventJSON), eventSize / eventJSON, 1.15);

  constexpr int kCalls = 100'000;
  session.setAnswer(Answer::hang);
  Veltrano::shared().track("Hangs", {}, [](bool) {});
  session.awaitPost();
  const double idle = static_cast<double>(bytesInUse.load());
  track(kCalls);
  const double callSize = (static_cast<double>(bytesInUse.load()) - idle) / kCalls;
  bench::printRatio("memory per call that waits while an upload hangs", bench::sizeText(callSize),
                    bench::sizeText(eventJSON), callSize / eventJSON, 0.6);

  constexpr int kCallsWithMap = 1000;
  const veltrano::HostMap properties{
      {"plan", "pro"}, {"items", 3}, {"price", 9.5}, {"first", true}, {"store", "north"}};
  const int before = allocations;
  for (int i = 0; i < kCallsWithMap; ++i) Veltrano::shared().track("Bought", properties);
  const double chunks = callSize * kCallsWithMap / 4096 + 1;  // filled by the calls
  const double more = (allocations - before - chunks) / kCallsWithMap;
  bench::print("`track`, 5 properties in a map built before: allocations besides its chunks",
               fmt::format("{:.3g} a call", std::max(more, 0.)),
               bench::goalText("none", more <= 0));
  std::_Exit(0);
}

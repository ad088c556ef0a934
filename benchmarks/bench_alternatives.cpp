// Compares unusual constructions with their plain form.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "benchmarks/call_times.h"
#include "benchmarks/figures.h"
#include "encoding/base64.h"
#include "encoding/json_writer.h"
#include "encoding/utf8.h"
#include "platform/posix/threads/submissions.h"

namespace {

constexpr std::size_t kBurst = 40'000;

struct EmptyBlock final : veltrano::internal::Block {
  void run() override {}
};

// The plain form of `Submissions`: a mutex and a swap.
class LockedSubmissions {
 public:
  void push(veltrano::internal::Block* block) {
    const std::lock_guard lock(mutex_);
    blocks_.push_back(block);
  }

  // Runs all blocks and returns their number.
  std::size_t runAll() {
    taken_.clear();
    {
      const std::lock_guard lock(mutex_);
      taken_.swap(blocks_);
    }
    for (veltrano::internal::Block* block : taken_) block->run();
    return taken_.size();
  }

 private:
  std::mutex mutex_;
  std::vector<veltrano::internal::Block*> blocks_;
  std::vector<veltrano::internal::Block*> taken_;
};

class LinkedSubmissions {
  using Queue = veltrano::internal::Submissions<veltrano::internal::Block,
                                                veltrano::internal::StandardThreads>;

 public:
  LinkedSubmissions() { submissions_.setReader(Queue::Reader::awake); }  // it polls

  void push(veltrano::internal::Block* block) { static_cast<void>(submissions_.submit(block)); }

  std::size_t runAll() {
    std::size_t count = 0;
    while (veltrano::internal::Block* const block = submissions_.takeOldest()) {
      block->run();
      ++count;
    }
    return count;
  }

 private:
  Queue submissions_;
};

// Hands blocks to a thread that polls like the work queue's. Never destroyed.
template <class Submissions>
class Handoff {
 public:
  Handoff() {
    std::thread([this] {
      for (;;) {
        const std::size_t count = submissions_.runAll();
        done_ += count;
        if (count == 0) std::this_thread::sleep_for(std::chrono::microseconds(400));
      }
    }).detach();
  }

  void call() {
    thread_local std::vector<EmptyBlock> blocks(kBurst);
    thread_local std::size_t next = 0;
    submissions_.push(&blocks[next]);
    next = (next + 1) % blocks.size();
  }

  void drain() {
    expected_ += kBurst;
    while (done_ < expected_) std::this_thread::yield();
  }

 private:
  Submissions submissions_;
  std::atomic<std::size_t> done_ = 0;
  std::size_t expected_ = 0;
};

void compareHandoff(int rounds) {
  auto& linked = *new Handoff<LinkedSubmissions>;
  auto& locked = *new Handoff<LockedSubmissions>;
  const auto time = [](const bench::Load& load, auto& handoff) {
    return bench::timeCalls(
        load, [&] { handoff.call(); }, [&] { handoff.drain(); });
  };
  for (const int threads : {2, 4}) {
    const bench::Load load{.threads = threads, .burst = kBurst};
    bench::Turns medians, p99s;
    for (int round = 0; round < rounds; ++round) {
      const bench::CallTimes own = time(load, linked);
      const bench::CallTimes plain = time(load, locked);
      medians.add(own.median, plain.median);
      p99s.add(own.p99, plain.p99);
    }
    const std::string what =
        "submitting a block without a lock, " + std::to_string(threads) + " threads";
    medians.print(what + ": median", "mutex", {});
    p99s.print(what + ": 99th percentile", "mutex", 0.5);
  }
}

// Times both forms alternately. Each writes its result to the text that it gets.
void compare(int rounds, const std::string& what, const std::string& plainName, auto own,
             auto plain) {
  bench::Turns turns;
  for (int round = 0; round < 50 * rounds; ++round) {
    std::string ownResult, plainResult;
    const double ownTime = bench::timeOf([&] { own(ownResult); });
    turns.add(ownTime, bench::timeOf([&] { plain(plainResult); }));
    if (ownResult == plainResult) continue;
    std::fprintf(stderr, "%s: the two forms differ.\n", what.c_str());
    std::exit(1);
  }
  turns.print(what, plainName, 0.9);
}

// The plain form of `JSONWriter`, which works byte by byte. Not inlined, like the original.
class PlainWriter {
 public:
  [[gnu::noinline]] void clear() {
    buffer_.Clear();
    writer_.Reset(buffer_);
  }
  [[gnu::noinline]] void startObject() { writer_.StartObject(); }
  [[gnu::noinline]] void endObject() { writer_.EndObject(); }
  [[gnu::noinline]] void key(std::string_view text) { string(text); }
  [[gnu::noinline]] void string(std::string_view text) {
    writer_.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
  }
  [[gnu::noinline]] void members(std::string_view text) {
    const std::size_t colon = text.find(':');
    writer_.RawValue(text.data(), colon, rapidjson::kStringType);
    writer_.RawValue(text.data() + colon + 1, text.size() - colon - 1, rapidjson::kObjectType);
  }
  std::string_view text() const { return {buffer_.GetString(), buffer_.GetSize()}; }

 private:
  rapidjson::StringBuffer buffer_;
  rapidjson::Writer<rapidjson::StringBuffer> writer_{buffer_};
};

// Writes the texts of 200 events and the members that all of them share.
void compareJSON(int rounds) {
  const std::string common =
      R"("app_build":"4711","app_id":"player","app_version":"3.2.1","brand":"Somebody's",)"
      R"("language":"en","model":"PC","os":"Linux","os_version":"6.1.0","screen_height":2556,)"
      R"("screen_width":1179,"uid":"user-17")";
  const auto write = [&](auto& writer, std::string& result) {
    for (int event = 0; event < 200; ++event) {
      writer.clear();
      writer.startObject();
      writer.members(common);
      for (const char* key : {"address", "campaign", "plan", "product", "referrer", "screen"}) {
        writer.key(key);
        writer.string("twelve bytes");
      }
      writer.endObject();
    }
    result = writer.text();
  };
  veltrano::internal::JSONWriter writer;
  PlainWriter plainWriter;
  compare(
      rounds, "JSON of 200 events, what needs no change copied at once", "byte by byte",
      [&](std::string& result) { write(writer, result); },
      [&](std::string& result) { write(plainWriter, result); });
}

// The plain form of `appendBase64`, for whole groups of three bytes.
void appendPlainBase64(std::string& text, std::string_view bytes) {
  constexpr std::string_view kAlphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  text.resize(bytes.size() / 3 * 4);
  char* to = text.data();
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const auto byte = [&](std::size_t j) { return static_cast<unsigned char>(bytes[i + j]); };
    const unsigned bits = byte(0) << 16U | byte(1) << 8U | byte(2);
    for (int shift = 18; shift >= 0; shift -= 6) *to++ = kAlphabet[bits >> shift & 63U];
  }
}

void compareBase64(int rounds) {
  std::mt19937 random(1);
  std::string bytes(138'000, ' ');
  for (char& byte : bytes) byte = static_cast<char>(random());
  const std::string_view pieces[] = {bytes};
  compare(
      rounds, "Base64 of 138 KB by pairs of characters", "by single characters",
      [&](std::string& result) { veltrano::internal::appendBase64(result, pieces); },
      [&](std::string& result) { appendPlainBase64(result, bytes); });
}

// Not inlined, as for most callers in the library.
[[gnu::noinline]] bool isASCIIByEights(std::string_view text) {
  return veltrano::internal::isASCII(text);
}

[[gnu::noinline]] bool isASCIIByBytes(std::string_view text) {
  return std::none_of(text.begin(), text.end(),
                      [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

void compareASCII(int rounds) {
  // Typical names, keys and texts.
  const std::string_view texts[] = {"Bought", "plan", "pro",      "items",        "price",
                                    "store",  "uid",  "campaign", "twelve bytes", "$app_version"};
  const auto countASCII = [&](std::string& result, auto isASCII) {
    int count = 0;
    for (int event = 0; event < 200; ++event)
      for (const std::string_view text : texts) count += isASCII(text) ? 1 : 0;
    result = std::to_string(count);
  };
  compare(
      rounds, "2,000 short texts looked at for what is not ASCII, eight bytes at a time",
      "byte by byte", [&](std::string& result) { countASCII(result, isASCIIByEights); },
      [&](std::string& result) { countASCII(result, isASCIIByBytes); });
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 40;
  compareHandoff(rounds);
  compareJSON(rounds);
  compareBase64(rounds);
  compareASCII(rounds);
  std::_Exit(0);
}

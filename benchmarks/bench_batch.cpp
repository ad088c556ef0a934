// What the work queue does with a full queue of 200 events of 15 properties: encoding them, making
// the body of their upload, doing that again, and recording one more event while uploads fail.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/bench_platform.h"
#include "benchmarks/figures.h"
#include "benchmarks/manual_platform.h"
#include "benchmarks/rapidjson_reference.h"
#include "properties/parameter_conversion.h"
#include "tracker/event_encoder.h"
#include "tracker/library.h"
#include "upload/corvane_endpoint_request.h"
#include "veltrano/veltrano.h"

namespace {

using Clock = std::chrono::steady_clock;
using veltrano::HostMap;
using veltrano::PropertyMap;

constexpr std::size_t kEvents = 200;

// Times what `work` does in each iteration, but not how its result is destroyed.
template <class Work>
void timeEach(benchmark::State& state, Work work) {
  for ([[maybe_unused]] auto iteration : state) {
    const auto start = Clock::now();
    auto result = work();
    benchmark::DoNotOptimize(result);
    benchmark::ClobberMemory();
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
  }
}

class Batch {
 public:
  // With `session` and `workQueue` as the library's platform.
  Batch(bench::ManualURLSession& session, bench::ManualWorkQueue& workQueue)
      : session_(session), workQueue_(workQueue) {
    for (std::size_t i = 0; i < kEvents; ++i)
      events_.push_back({"Bought",
                         {.timeInMilliseconds = 1'700'000'000'000 + integer(1'000'000),
                          .isOnWiFi = true,
                          .carrier = std::nullopt,
                          .trackingAuthorizationStatus = 3},
                         *veltrano::ParameterConversion::convert(hostProperties())});
    encoder_.setBase(endpoints_.defaultProperties.properties(), superProperties_);
    encodedEvents_ = encode();
    for (std::size_t i = 0; i < kEvents; ++i) Veltrano::shared().track("Bought", hostProperties());
    workQueue_.runAll();
  }

  // Whether both sides make the same body.
  bool isFair() {
    send(encodedEvents_);
    const std::string body = session_.body();
    return body == "data=" + std::string(reference_.base64(referenceJSON()));
  }

  std::size_t jsonSize() { return referenceJSON().size(); }

  void firstTime(benchmark::State& state) {
    timeEach(state, [this] {
      auto records = encode();
      send(records);
      return records;
    });
  }

  void again(benchmark::State& state) {
    timeEach(state, [this] { return send(encodedEvents_); });
  }

  void reference(benchmark::State& state) {
    timeEach(state, [this] { return reference_.base64(referenceJSON()); });
  }

  void base64Alone(benchmark::State& state) {
    const std::string json(referenceJSON());
    timeEach(state, [&] { return reference_.base64(json); });
  }

  // The conversion belongs to this, the call does not.
  void oneMore(benchmark::State& state) {
    const HostMap properties = hostProperties();
    for ([[maybe_unused]] auto iteration : state) {
      Veltrano::shared().track("Bought", properties);
      const auto start = Clock::now();
      workQueue_.runAll();
      state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
  }

 private:
  std::int64_t integer(std::int64_t below) {
    return std::uniform_int_distribution<std::int64_t>(0, below - 1)(random_);
  }

  double number(std::int64_t below, double divisor) {
    return static_cast<double>(integer(below)) / divisor;
  }

  std::string text() {
    std::string letters(12, ' ');
    for (char& letter : letters) letter = static_cast<char>('a' + integer(26));
    return letters;
  }

  HostMap hostProperties() {
    return {{"plan", text()},
            {"store", text()},
            {"campaign", text()},
            {"referrer", text()},
            {"screen", text()},
            {"product", text()},
            {"items", integer(100)},
            {"position", integer(10'000)},
            {"visits", integer(1000)},
            {"account", integer(1'000'000'000)},
            {"price", number(100'000, 100)},
            {"latitude", number(90'000'000, 1e6)},
            {"share", number(1'000'000'000, 999'999'937)},
            {"first", integer(2) == 1},
            {"address", {{"city", text()}, {"zip", integer(100'000)}}}};
  }

  std::deque<veltrano::EventRecord> encode() {
    std::deque<veltrano::EventRecord> records;
    for (const bench::Event& event : events_)
      records.push_back(encoder_.encode(event.name, event.automatic, event.properties));
    return records;
  }

  bool send(const std::deque<veltrano::EventRecord>& records) {
    veltrano::CorvaneEndpointRequest(endpoints_, records, superProperties_).send([](bool) {});
    return true;
  }

  std::string_view referenceJSON() { return reference_.batch(events_, base_); }

  bench::ManualURLSession& session_;
  bench::ManualWorkQueue& workQueue_;
  const veltrano::Endpoints& endpoints_ = veltrano::Library::current().endpoints();
  std::mt19937 random_{1};
  std::vector<bench::Event> events_;
  veltrano::EventEncoder encoder_;
  const PropertyMap superProperties_{{{"uid", "user-17"}, {"app_id", "player"}}};
  const PropertyMap base_ = endpoints_.defaultProperties.properties() + superProperties_;
  std::deque<veltrano::EventRecord> encodedEvents_;
  bench::RapidJSONReference reference_;
};

// Keeps the median time of each benchmark, in nanoseconds.
class Medians final : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs)
      if (run.run_type == Run::RT_Iteration)
        times_[run.run_name.function_name].push_back(run.GetAdjustedRealTime());
  }

  double of(const std::string& name) const { return bench::median(times_.at(name)); }

 private:
  std::map<std::string, std::vector<double>> times_;
};

void printRatio(const std::string& what, double measured, double reference, double atMost) {
  bench::printRatio(what, bench::timeText(measured), bench::timeText(reference),
                    measured / reference, atMost);
}

}  // namespace

int main(int argc, char** argv) {
  const int repetitions = argc > 1 ? std::atoi(argv[1]) : 1000;
  auto& session = *new bench::ManualURLSession;
  auto& workQueue = *new bench::ManualWorkQueue(session);
  bench::installBenchPlatform(session, &workQueue);
  auto& batch = *new Batch(session, workQueue);
  if (!batch.isFair()) {
    std::fputs("The two sides do not make the same body.\n", stderr);
    return 1;
  }

  // One at a time in random order, so that what slows the machine down for a while slows all of
  // them, and is not in the median.
  char program[] = "bench_batch";
  char interleaving[] = "--benchmark_enable_random_interleaving=true";
  char* arguments[] = {program, interleaving};
  int count = 2;
  benchmark::Initialize(&count, arguments);
  const auto add = [&](const char* name, void (Batch::*measure)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name, [&batch, measure](auto& state) { (batch.*measure)(state); })
        ->UseManualTime()
        ->Unit(benchmark::kNanosecond)
        ->Iterations(1)
        ->Repetitions(repetitions);
  };
  add("first", &Batch::firstTime);
  add("again", &Batch::again);
  add("reference", &Batch::reference);
  add("base64", &Batch::base64Alone);
  add("one more", &Batch::oneMore);
  Medians medians;
  benchmark::RunSpecifiedBenchmarks(&medians);

  const std::string size = bench::sizeText(static_cast<double>(batch.jsonSize()));
  printRatio("200 events × 15 properties (" + size + " of JSON) to the body, first time",
             medians.of("first"), medians.of("reference"), 1.0);
  printRatio("the same batch again", medians.of("again"), medians.of("first"), 0.35);
  printRatio("recording one more event while uploads fail and 200 wait", medians.of("one more"),
             medians.of("base64"), 2.5);
  std::_Exit(0);
}

// Measures the work for a full queue of 200 events with 15 properties: encoding them, building the
// body of the upload, building it again, and recording one more event while uploads fail.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
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

using veltrano::HostMap;
using veltrano::internal::PropertyMap;

constexpr std::size_t kEvents = 200;

class Batch {
 public:
  // Installs a platform with `session` and `workQueue`.
  Batch(bench::ManualURLSession& session, bench::ManualWorkQueue& workQueue)
      : session_(session), workQueue_(workQueue) {
    for (std::size_t i = 0; i < kEvents; ++i) {
      const HostMap given = hostProperties();
      events_.push_back({"Bought",
                         {.timeInMilliseconds = 1'700'000'000'000 + integer(1'000'000),
                          .trackingAuthorizationStatus = 3,
                          .isOnWiFi = true},
                         given,
                         *veltrano::internal::ParameterConversion::convert(given)});
    }
    encoder_.setBase(client_.defaultProperties.properties(), superProperties_);
    encodedEvents_ = encode();
    for (std::size_t i = 0; i < kEvents; ++i) Veltrano::shared().track("Bought", hostProperties());
    workQueue_.runAll();
  }

  // Whether both sides produce the same body.
  bool isFair() {
    send(encodedEvents_);
    const std::string body = session_.body();
    return body == "data=" + std::string(reference_.base64(referenceJSON()));
  }

  std::size_t jsonSize() { return referenceJSON().size(); }

  // Each returns the nanoseconds that it took.
  double firstTime() {
    std::vector<veltrano::internal::EventRecord> records;  // destroyed after the measurement
    return bench::timeOf([&] {
      records = encode();
      send(records);
    });
  }

  double again() {
    return bench::timeOf([this] { send(encodedEvents_); });
  }

  double reference() {
    return bench::timeOf([this] { reference_.base64(referenceJSON()); });
  }

  double base64Alone() {
    const std::string json(referenceJSON());
    return bench::timeOf([&] { reference_.base64(json); });
  }

  // Includes the conversion, but not the call.
  double oneMore() {
    Veltrano::shared().track("Bought", oneMoreProperties_);
    return bench::timeOf([this] { workQueue_.runAll(); });
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

  std::vector<veltrano::internal::EventRecord> encode() {
    std::vector<veltrano::internal::EventRecord> records;
    for (const bench::Event& event : events_)
      records.push_back(encoder_.encode(event.name, event.automatic,
                                        veltrano::internal::viewOf(noCarrier_),
                                        veltrano::internal::viewOf(event.given)));
    return records;
  }

  void send(const std::vector<veltrano::internal::EventRecord>& records) {
    veltrano::internal::CorvaneEndpointRequest(client_, records, superProperties_)
        .send(
            veltrano::internal::Urgency::ordinary, [] {},
            [](const veltrano::internal::UploadOutcome&) {});
  }

  std::string_view referenceJSON() { return reference_.batch(events_, base_); }

  bench::ManualURLSession& session_;
  bench::ManualWorkQueue& workQueue_;
  const veltrano::internal::CollectionClient& client_ =
      veltrano::internal::Library::current().client();
  std::mt19937 random_{1};
  std::vector<bench::Event> events_;
  const HostMap oneMoreProperties_ = hostProperties();
  const std::vector<std::string> withheld_;
  veltrano::internal::EventEncoder encoder_{withheld_};
  const veltrano::HostValue noCarrier_;
  const PropertyMap superProperties_ = *veltrano::internal::ParameterConversion::convert(
      HostMap{{"uid", "user-17"}, {"app_id", "player"}});
  const PropertyMap base_ = client_.defaultProperties.properties() + superProperties_;
  std::vector<veltrano::internal::EventRecord> encodedEvents_;
  bench::RapidJSONReference reference_;
};

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 1000;
  auto& session = *new bench::ManualURLSession;
  auto& workQueue = *new bench::ManualWorkQueue(session);
  bench::installBenchPlatform(session, &workQueue);
  auto& batch = *new Batch(session, workQueue);
  if (!batch.isFair()) {
    std::fputs("The two sides do not make the same body.\n", stderr);
    return 1;
  }

  double first = 0, again = 0, reference = 0, base64 = 0, oneMore = 0;
  std::vector<std::function<void()>> turns = {
      [&] { first = batch.firstTime(); },     [&] { again = batch.again(); },
      [&] { reference = batch.reference(); }, [&] { base64 = batch.base64Alone(); },
      [&] { oneMore = batch.oneMore(); },
  };
  bench::Turns firstTurns, againTurns, oneMoreTurns;
  std::mt19937 random(1);
  for (int round = 0; round < rounds; ++round) {
    // In random order, so that no turn always runs on the same predecessor's warm caches.
    std::shuffle(turns.begin(), turns.end(), random);
    for (const auto& turn : turns) turn();
    firstTurns.add(first, reference);
    againTurns.add(again, first);
    oneMoreTurns.add(oneMore, base64);
  }
  const std::string size = bench::sizeText(static_cast<double>(batch.jsonSize()));
  firstTurns.print("200 events × 15 properties (" + size + " of JSON) to the body, first time",
                   "RapidJSON and OpenSSL", 0.85);
  againTurns.print("the same batch again", "first time", 0.3);
  oneMoreTurns.print("recording one more event while uploads fail and 200 wait", "OpenSSL's Base64",
                     1);
  std::_Exit(0);
}

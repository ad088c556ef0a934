#include "tools/soak/arrivals.h"

#include <rapidjson/document.h>

#include <algorithm>
#include <fstream>

#include "platform/endpoint_path.h"

namespace soak {
namespace {

constexpr int kNone = -1;

// The latest answer to each event of a thread, and the first event that has not arrived.
struct Thread {
  std::vector<int> answers;
  std::size_t next = 0;
};

void take(const rapidjson::Value& batch, int answer, std::vector<Thread>& threads,
          Arrivals& arrivals) {
  int before = kNone;
  std::map<std::size_t, std::size_t> expected;  // by thread, in this batch
  for (const auto& event : batch.GetArray()) {
    if (event["event"] == "Heartbeat Failed") continue;  // the library's own
    const std::size_t thread = event["properties"]["thread"].GetUint64();
    const std::size_t number = event["properties"]["number"].GetUint64();
    if (thread >= threads.size() || number >= threads[thread].answers.size()) {
      ++arrivals.wrong["invented"];
      continue;
    }
    // The queue drops its oldest events only, so none is missing inside of a batch.
    const auto place = expected.emplace(thread, number).first;
    if (place->second != number) ++arrivals.wrong["lost or reordered in a batch"];
    place->second = number + 1;

    auto& [answers, next] = threads[thread];
    if (answers[number] != kNone) {
      ++arrivals.repeated;
      before = answers[number];
    } else if (number < next) {
      ++arrivals.wrong["arrived after a later one"];
    }
    next = std::max(next, number + 1);
    if (answers[number] == 200) continue;
    answers[number] = answer;
    arrivals.succeeded += answer == 200;
  }
  ++arrivals.requests;
  arrivals.retries += before == 502 || before == 503 || before == 504;
  arrivals.repeatedAfterSuccess += before == 200;
}

}  // namespace

Arrivals arrivalsIn(const std::string& record, const std::vector<std::size_t>& tracked) {
  using namespace veltrano::internal;
  Arrivals arrivals;
  std::vector<Thread> threads;
  threads.reserve(tracked.size());
  for (const std::size_t count : tracked) threads.push_back({std::vector<int>(count, kNone), 0});
  std::ifstream file(record);
  for (std::string line; std::getline(file, line);) {
    rapidjson::Document request;
    if (request.Parse(line.data(), line.size()).HasParseError())
      continue;  // what a killed collector left
    if (endpointPath(request["path"].GetString()) == EndpointPath::track)
      take(request["body"], request["answer"].GetInt(), threads, arrivals);
    else
      ++arrivals.heartbeats;
  }
  return arrivals;
}

}  // namespace soak

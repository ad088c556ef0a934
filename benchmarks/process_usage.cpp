#include "benchmarks/process_usage.h"

#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace bench {
namespace {

// Reads the fields below from the status of one thread.
ThreadUsage readThread(const std::filesystem::path& directory) {
  ThreadUsage usage;
  std::ifstream status(directory / "status");
  for (std::string field; status >> field;) {
    if (field == "Name:") status >> usage.name;
    if (field == "voluntary_ctxt_switches:") status >> usage.wakeUps;
  }
  std::ifstream(directory / "schedstat") >> usage.nanosecondsRun;
  return usage;
}

}  // namespace

double peakResidentBytes() {
  rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) * 1024;
}

std::map<int, ThreadUsage> otherThreads() {
  std::map<int, ThreadUsage> threads;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
    const int id = std::stoi(entry.path().filename());
    if (id != gettid()) threads.emplace(id, readThread(entry.path()));
  }
  return threads;
}

}  // namespace bench

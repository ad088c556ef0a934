// What the system says about this process.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace bench {

/// The most memory that the process has had resident so far, in bytes.
double peakResidentBytes();

struct ThreadUsage {
  std::string name;
  std::uint64_t wakeUps = 0;         // how often it has given up the processor of its own accord
  std::uint64_t nanosecondsRun = 0;  // processor time
};

/// By thread number, without the calling thread.
std::map<int, ThreadUsage> otherThreads();

}  // namespace bench

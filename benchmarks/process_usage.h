// Reads this process's resource usage.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace bench {

/// The peak resident memory so far, in bytes.
double peakResidentBytes();

struct ThreadUsage {
  std::string name;
  std::uint64_t wakeUps = 0;         // voluntary context switches
  std::uint64_t nanosecondsRun = 0;  // processor time
};

/// All threads but the calling one, by thread id.
std::map<int, ThreadUsage> otherThreads();

}  // namespace bench

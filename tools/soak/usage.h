// What this process holds of the system, over time.
#pragma once

#include <vector>

namespace soak {

struct Usage {
  long descriptors = 0;  // in the process's table, and in those of the library's network threads
  long threads = 0;
  long kibibytes = 0;  // resident
};

/// Most of each among the samples from `begin` to `end`, which are shares of their number.
Usage most(const std::vector<Usage>& samples, double begin, double end);

Usage usageNow();

}  // namespace soak

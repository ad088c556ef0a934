// Measures this process's resources.
#pragma once

#include <vector>

namespace soak {

struct Usage {
  long descriptors = 0;  // including the tables of the library's network threads
  long threads = 0;
  long kibibytes = 0;  // resident
};

/// The maximum of each among the samples from `begin` to `end`, fractions from 0 to 1.
Usage most(const std::vector<Usage>& samples, double begin, double end);

Usage usageNow();

}  // namespace soak

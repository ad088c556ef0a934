// What arrived, as the collector recorded it, compared with what was tracked.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace soak {

/// Events are numbered from 0 by each thread that tracks them.
struct Arrivals {
  std::size_t requests = 0;  // to /track
  std::size_t retries = 0;   // of these, the first after a 502, 503 or 504 for the same events
  std::size_t repeatedAfterSuccess = 0;  // of these, with events that 200 had been answered for
  std::size_t repeated = 0;              // arrivals of events that had arrived
  std::size_t succeeded = 0;             // events that 200 was answered for
  std::size_t heartbeats = 0;
  std::map<std::string, std::size_t> wrong;
};

/// `tracked` is the number of events of each thread.
Arrivals arrivalsIn(const std::string& record, const std::vector<std::size_t>& tracked);

}  // namespace soak

#pragma once

#include <string>

#include "tools/replay/scenario.h"

namespace replay {

struct LiveOptions {
  std::string collectionHost;          // "host:port"
  std::string certificateAuthorities;  // a PEM file; empty: the system's own
  std::string userDefaultsFile;        // empty: a temporary one
  std::string token;                   // the user's session token; empty: none
};

/// Plays `scenario` on the POSIX platform, in real time, with the calling thread as the main
/// thread. Passes the lines of the trace to `write`. Ends the process when the scenario ends.
[[noreturn]] void runLive(const Scenario& scenario, const LiveOptions& options,
                          const Trace::Write& write, Bodies bodies);

}  // namespace replay

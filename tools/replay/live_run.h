#pragma once

#include <string>

#include "tools/replay/scenario.h"

namespace replay {

struct LiveOptions {
  std::string collectionHost;          // "host:port"
  std::string certificateAuthorities;  // a PEM file; the system's own when empty
  std::string userDefaultsFile;        // a temporary one when empty
  std::string token;                   // of the user's session; none when empty
};

/// Plays `scenario` on the POSIX platform, in real time, on the calling thread as the main thread.
/// Writes its trace to the standard output. Ends the process when the scenario ends.
[[noreturn]] void runLive(const Scenario& scenario, const LiveOptions& options, Bodies bodies);

}  // namespace replay

#pragma once

#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include "encoding/time.h"
#include "platform/url_session.h"

namespace replay {

/// How the bodies of posts stand in a trace: as they were sent, or decoded for people.
enum class Bodies { asSent, decoded };

/// Writes what happens as JSON Lines, each line whole and with the time at which it is written.
/// Safe to use from any thread.
class Trace {
 public:
  using Write = std::function<void(std::string_view)>;

  /// `now` answers the time since the start of the scenario; `write` takes each line, line feed
  /// included.
  Trace(std::function<veltrano::internal::Duration()> now, Write write, Bodies bodies);

  void logged(std::string_view line);
  void posted(const veltrano::internal::PostRequest& request);
  void completed(const std::string& label, bool result);
  void handled(const std::string& label);
  void wroteDefaults(const std::string& key, double value);
  void answered(std::string_view answer);
  void answered(bool answer);

  /// Lets the line in progress be finished and no further one begin.
  void close() { mutex_.lock(); }

 private:
  template <class WriteMembers>
  void add(const WriteMembers& writeMembers);

  const std::function<veltrano::internal::Duration()> now_;
  const Write write_;
  const Bodies bodies_;
  std::mutex mutex_;  // keeps the lines in the order of their times
};

}  // namespace replay

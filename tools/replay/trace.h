#pragma once

#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include "encoding/time.h"
#include "platform/url_session.h"

namespace replay {

/// How a trace shows the bodies of posts: as sent, or decoded for humans.
enum class Bodies { asSent, decoded };

/// Writes events as JSON Lines, each with the time at which it is written. Lines never mix.
/// Thread-safe.
class Trace {
 public:
  using Write = std::function<void(std::string_view)>;

  /// `now` returns the time since the start of the scenario. `write` gets each line, with its line
  /// feed.
  Trace(std::function<veltrano::internal::Duration()> now, Write write, Bodies bodies);

  /// Adds a line with `json` under `key`, and further members.
  void add(std::string_view key, const std::string& json, const std::string& more = "");

  void addPost(const veltrano::internal::PostRequest& request);
  void addDefault(const std::string& key, double value);

  /// Waits for the current line and blocks all later ones.
  void close() { mutex_.lock(); }

 private:
  const std::function<veltrano::internal::Duration()> now_;
  const Write write_;
  const Bodies bodies_;
  std::mutex mutex_;  // keeps the lines ordered by time
};

}  // namespace replay

// Controls a veltrano-collector (see tools/README.md).
#pragma once

#include <httplib.h>

#include <cstdint>
#include <string>

/// Throws std::runtime_error when the collector does not answer.
class CollectorControl {
 public:
  struct Counters {
    std::uint64_t events = 0;
    std::uint64_t heartbeats = 0;
  };

  /// `address` is "host:port", `certificate` a PEM file.
  CollectorControl(const std::string& address, const std::string& certificate);

  /// Answers requests to `path` with `status` until `behave`.
  void misbehave(const std::string& path, int status);
  void behave(const std::string& path);

  /// What the collector has accepted so far.
  Counters counters();

 private:
  httplib::Client client_;
};

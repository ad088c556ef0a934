// Starts, stops, kills and restarts a veltrano-collector.
#pragma once

#include <httplib.h>
#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace soak {

/// Keeps its port and certificate across restarts. Each start writes its own record. The process
/// ends with the thread that started it.
class CollectorProcess {
 public:
  /// `directory` stores the certificate, the records and the collector's complaints.
  CollectorProcess(std::string program, std::filesystem::path directory);
  ~CollectorProcess() { stop(SIGKILL); }
  CollectorProcess(const CollectorProcess&) = delete;
  CollectorProcess& operator=(const CollectorProcess&) = delete;

  /// Returns when the collector answers. Throws std::runtime_error if it never does.
  void start();
  /// Sends `signal`, which must be fatal, and waits for the process to end.
  void stop(int signal);
  /// Injects faults, given as JSON.
  void misbehave(const std::string& faults);

  std::string host() const { return "localhost:" + std::to_string(port_); }
  std::filesystem::path certificate() const { return directory_ / "certificate.pem"; }
  const std::vector<std::filesystem::path>& records() const { return records_; }
  /// The number of requests that it refused as malformed.
  std::size_t complaints() const;

 private:
  bool tryToStart();
  httplib::Client client() const;

  const std::string program_;
  const std::filesystem::path directory_;
  int port_;
  pid_t process_ = -1;
  std::vector<std::filesystem::path> records_;
};

}  // namespace soak

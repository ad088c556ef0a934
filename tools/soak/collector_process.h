// A veltrano-collector that is started, stopped, killed and started again.
#pragma once

#include <httplib.h>
#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace soak {

/// Keeps its port and certificate from start to start. Each start writes a record of its own. The
/// process ends with the thread that started it.
class CollectorProcess {
 public:
  /// `directory` takes the certificate, the records and what the collector complains about.
  CollectorProcess(std::string program, std::filesystem::path directory);
  ~CollectorProcess() { stop(SIGKILL); }
  CollectorProcess(const CollectorProcess&) = delete;
  CollectorProcess& operator=(const CollectorProcess&) = delete;

  /// Returns once it answers. Throws std::runtime_error when it never does.
  void start();
  /// Sends `signal`, which ends it, and waits for the end.
  void stop(int signal);
  /// Posts faults to its controls, as JSON.
  void misbehave(const std::string& faults);

  std::string host() const { return "localhost:" + std::to_string(port_); }
  std::filesystem::path certificate() const { return directory_ / "certificate.pem"; }
  const std::vector<std::filesystem::path>& records() const { return records_; }
  /// How many requests it found malformed.
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

#include "tools/soak/collector_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <utility>

namespace soak {
namespace {

// Below the range of ephemeral ports: while the collector is down, an outgoing connection might
// otherwise take its port, or even connect to itself.
constexpr int kFirstPort = 15'000;
constexpr int kPorts = 15'000;

}  // namespace

CollectorProcess::CollectorProcess(std::string program, std::filesystem::path directory)
    : program_(std::move(program)),
      directory_(std::move(directory)),
      port_(kFirstPort + getpid() % kPorts) {}

void CollectorProcess::start() {
  const bool mayMove = records_.empty();
  for (int attempt = 0; attempt < 10; ++attempt) {
    if (tryToStart()) return;
    if (mayMove) ++port_;
  }
  throw std::runtime_error("The collector does not start.");
}

bool CollectorProcess::tryToStart() {
  records_.push_back(directory_ / ("record." + std::to_string(records_.size())));
  const std::string port = std::to_string(port_);
  const std::string key = directory_ / "key.pem";
  const std::string complaints = directory_ / "complaints";
  const std::string certificateFile = certificate();
  const char* const arguments[] = {
      program_.c_str(),        "--port",          port.c_str(), "--certificate",
      certificateFile.c_str(), "--key",           key.c_str(),  "--output",
      records_.back().c_str(), "--require-token", "soak",       nullptr};
  process_ = fork();
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int output = open(complaints.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execv(arguments[0], const_cast<char* const*>(arguments));
    _exit(127);
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (std::chrono::steady_clock::now() < end && waitpid(process_, nullptr, WNOHANG) == 0) {
    const auto answer = client().Get("/control/counters");
    if (answer && answer->status == 200) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  stop(SIGKILL);
  return false;
}

void CollectorProcess::stop(int signal) {
  if (process_ <= 0) return;
  kill(process_, signal);
  waitpid(process_, nullptr, 0);
  process_ = -1;
}

void CollectorProcess::misbehave(const std::string& faults) {
  const auto answer = client().Post("/control", faults, "application/json");
  if (!answer || answer->status != 200)
    throw std::runtime_error("The collector does not take " + faults);
}

httplib::Client CollectorProcess::client() const {
  httplib::Client client("https://" + host());
  client.set_ca_cert_path(certificate());
  client.set_connection_timeout(20);
  client.set_read_timeout(20);
  return client;
}

std::size_t CollectorProcess::complaints() const {
  std::ifstream file(directory_ / "complaints");
  std::size_t count = 0;
  for (std::string line; std::getline(file, line);) count += line.starts_with("refused (");
  return count;
}

}  // namespace soak
